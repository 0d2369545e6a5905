# The TLS source: streams and segments.
velm_fuzzer(tls_stream fuzz_tls_stream.cpp LIBS kdi_objects)
