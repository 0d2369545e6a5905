# The libraries that the project stands on, each as an imported target.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
pkg_check_modules(LUA REQUIRED IMPORTED_TARGET lua5.2)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(PCAP REQUIRED IMPORTED_TARGET libpcap)
pkg_check_modules(NETFILTER REQUIRED IMPORTED_TARGET
    libmnl libnetfilter_log libnetfilter_conntrack libnftables)
pkg_check_modules(TINS REQUIRED IMPORTED_TARGET libtins)

# wx-config knows the flags of the installed build; only the non-graphical libraries are asked for.
find_program(WX_CONFIG wx-config REQUIRED)
function(velm_wx_target name components)
    execute_process(COMMAND ${WX_CONFIG} --cxxflags base
        OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${WX_CONFIG} --libs ${components}
        OUTPUT_VARIABLE libs OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    separate_arguments(libs UNIX_COMMAND "${libs}")
    add_library(${name} INTERFACE IMPORTED GLOBAL)
    foreach(flag IN LISTS flags)
        if(flag MATCHES "^-I(.*)")
            target_include_directories(${name} SYSTEM INTERFACE ${CMAKE_MATCH_1})
        else()
            target_compile_options(${name} INTERFACE ${flag})
        endif()
    endforeach()
    target_link_libraries(${name} INTERFACE ${libs})
endfunction()
velm_wx_target(Velm::wxBase base)
velm_wx_target(Velm::wxXml base,xml)

# Headers of Lua without its library: a plug-in leaves the Lua symbols to the program that loads it.
add_library(velm_lua_headers INTERFACE)
target_include_directories(velm_lua_headers SYSTEM INTERFACE ${LUA_INCLUDE_DIRS})
