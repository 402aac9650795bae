# Runs COMMAND, a list, and compares what it prints, both streams, with EXPECTED, and its exit status with STATUS. The folder of
# the sources and that of the test data are cut from the output.
if(INPUT)
    set(input INPUT_FILE ${INPUT})
endif()
execute_process(COMMAND ${COMMAND} ${input} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
string(REPLACE "${FOLDER}/" "" printed "${output}${errors}")
file(READ ${EXPECTED} expected)
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "printed:\n${printed}\nexpected:\n${expected}")
endif()
if(NOT status EQUAL STATUS)
    message(FATAL_ERROR "exit status ${status}, expected ${STATUS}")
endif()
