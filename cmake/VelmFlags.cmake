# Our flags stand on a target of our own, so that they never reach a dependency's headers or
# another project's targets.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(VELM_SANITIZE "" CACHE STRING "Value of -fsanitize=, for example address,undefined")

add_library(velm_flags INTERFACE)
target_compile_options(velm_flags INTERFACE
    -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wformat=2
    -fvisibility=hidden -fvisibility-inlines-hidden
    -fstack-protector-strong -fno-strict-aliasing)
target_link_options(velm_flags INTERFACE -Wl,-z,relro,-z,now)

if(VELM_SANITIZE)
    target_compile_options(velm_flags INTERFACE
        -fsanitize=${VELM_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(velm_flags INTERFACE -fsanitize=${VELM_SANITIZE})
else()
    # The hardened library functions need optimisation, and get in the way of the sanitizers.
    target_compile_definitions(velm_flags INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
endif()
