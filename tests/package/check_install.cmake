# Installs the built library into a fresh prefix, then builds and runs the
# outside client against it twice: through find_package and through
# pkg-config; and runs the installed tavlo command on DATABASE when
# COMMANDS is set. Called by CTest with BUILD_DIR, WORK_DIR, SOURCE_DIR,
# C_COMPILER and C_FLAGS; for a Windows build also WINDOWS, the
# TOOLCHAIN_FILE it was cross-compiled with and the EMULATOR that runs its
# programs.
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

if(WINDOWS)
  set(library_files bin/tavloms.dll lib/tavloms.dll.a)
  # A cross build looks for packages below its target's root only.
  set(client_options -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE}
                     -Dtavloms_DIR=${prefix}/lib/cmake/tavloms)
else()
  set(library_files lib/libtavloms.so)
  set(client_options)
endif()

# Runs a client program: on Windows beside copies of the installed DLLs
# (where Windows looks for them), under the emulator when there is one.
function(run_client program)
  if(WINDOWS)
    get_filename_component(folder ${program} DIRECTORY)
    file(GLOB dlls ${prefix}/bin/*.dll)
    file(COPY ${dlls} DESTINATION ${folder})
    set(program ${program}.exe)
  endif()
  run(${EMULATOR} ${program})
  set(run_output "${run_output}" PARENT_SCOPE)
endfunction()

foreach(file include/tavloms/tavloms.h ${library_files} lib/pkgconfig/tavloms.pc
             lib/cmake/tavloms/tavlomsConfig.cmake)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

# The installed command finds the library and the JSON module from where it
# is installed, with no library path or other environment (Wine needs its
# own, and keeps every DLL in bin).
if(COMMANDS)
  if(WINDOWS)
    set(tavlo ${EMULATOR} ${prefix}/bin/tavlo.exe)
  else()
    set(tavlo env -i PATH=/usr/bin:/bin ${prefix}/bin/tavlo)
  endif()
  run(${tavlo} check ${DATABASE})
  run(${tavlo} convert ${DATABASE} ${WORK_DIR}/database.json)
  run(${tavlo} convert ${WORK_DIR}/database.json ${WORK_DIR}/database.dbc)
endif()

# find_package(tavloms) and the imported target tavloms::tavloms
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/client -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_C_COMPILER=${C_COMPILER} "-DCMAKE_C_FLAGS=${C_FLAGS}" ${client_options})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/client)
run_client(${WORK_DIR}/client/client)
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
run_client(${WORK_DIR}/pc_client)
message(STATUS "pkg-config client: ${run_output}")
