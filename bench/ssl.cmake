# The SSL key service.
velm_benchmark(ssl bench_ssl.cpp LIBS ostrel_objects velm_core kdi PkgConfig::LUA)
