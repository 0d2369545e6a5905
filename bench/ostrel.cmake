# The module's benchmarks. Their references are those of the unit tests.
set(reference ${PROJECT_SOURCE_DIR}/tests/unit/reference)
set(module_libs ostrel_objects velm_core kdi PkgConfig::LUA)
velm_benchmark(text bench_text.cpp ${reference}/ReferenceText.cpp LIBS ${module_libs})
velm_benchmark(cache bench_cache.cpp LIBS ${module_libs})
velm_benchmark(retrieval bench_retrieval.cpp ${reference}/ReferenceRetrieval.cpp
    LIBS ${module_libs})
foreach(name text cache retrieval)
    target_include_directories(bench_${name} PRIVATE ${reference})
endforeach()
