# Installs the build into WORK and builds SOURCE against it, once as a CMake package and once by pkg-config.
function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE output)
    set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${WORK}/build/consumer)
find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
file(GLOB_RECURSE metadata ${WORK}/prefix/*/qzString.pc)
cmake_path(GET metadata PARENT_PATH metadataFolder)
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${metadataFolder} ${PKG_CONFIG} --cflags --libs qzString)
string(STRIP "${output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(FLAGS UNIX_COMMAND "${FLAGS}")
run(${CXX} -std=c++17 ${FLAGS} ${SOURCE}/alone.cpp ${SOURCE}/consumer.cpp ${flags} -o ${WORK}/consumer)
cmake_path(GET metadataFolder PARENT_PATH libraries)
set(ENV{LD_LIBRARY_PATH} ${libraries})  # where the library is shared
run(${WORK}/consumer)
