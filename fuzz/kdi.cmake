# The live source's readers of outside bytes.
foreach(name log_message log_prefix nft_listing)
    velm_fuzzer(${name} fuzz_${name}.cpp LIBS kdi_objects)
endforeach()
