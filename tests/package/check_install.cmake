# Installs the built library into a fresh prefix, then builds and runs the
# outside client against it twice: through find_package and through
# pkg-config. Called by CTest with BUILD_DIR, WORK_DIR, SOURCE_DIR,
# C_COMPILER and C_FLAGS.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(file include/tavloms/tavloms.h lib/libtavloms.so lib/pkgconfig/tavloms.pc
             lib/cmake/tavloms/tavlomsConfig.cmake)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

# find_package(tavloms) and the imported target tavloms::tavloms
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/client -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_C_COMPILER=${C_COMPILER} "-DCMAKE_C_FLAGS=${C_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/client)
run(${WORK_DIR}/client/client)
message(STATUS "find_package client: ${run_output}")

# pkg-config
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
run(${PKG_CONFIG} --cflags --libs tavloms)
string(STRIP "${run_output}" pc_flags)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
separate_arguments(c_flags UNIX_COMMAND "${C_FLAGS}")
run(${C_COMPILER} ${c_flags} ${SOURCE_DIR}/client.c ${pc_flags} -o ${WORK_DIR}/pc_client)
set(ENV{LD_LIBRARY_PATH} ${prefix}/lib)
run(${WORK_DIR}/pc_client)
message(STATUS "pkg-config client: ${run_output}")
