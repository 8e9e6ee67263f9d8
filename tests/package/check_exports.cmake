# Checks the export table of the Windows DLL: every flat function the public
# headers declare with TAVLO_API is exported under its plain name (no
# decoration), and the classes' members are exported under their own names
# (GetMessage, not the GetMessageA that <windows.h> would make of it).
# Called by CTest with DLL, OBJDUMP and HEADERS_DIR.
execute_process(COMMAND ${OBJDUMP} -p ${DLL} RESULT_VARIABLE result OUTPUT_VARIABLE table)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${OBJDUMP} -p ${DLL} failed")
endif()

file(GLOB headers ${HEADERS_DIR}/*.h)
set(names)
foreach(header ${headers})
  file(READ ${header} text)
  string(REGEX MATCHALL "TAVLO_API [^;(]*[ *][A-Z][A-Z0-9_]+\\(" declarations "${text}")
  foreach(declaration ${declarations})
    string(REGEX MATCH "[A-Z][A-Z0-9_]+\\($" name "${declaration}")
    string(REPLACE "(" "" name "${name}")
    list(APPEND names ${name})
  endforeach()
endforeach()
list(REMOVE_DUPLICATES names)
list(LENGTH names count)
if(count LESS 50)
  message(FATAL_ERROR "only ${count} flat functions found in ${HEADERS_DIR}")
endif()

set(missing)
foreach(name ${names})
  if(NOT table MATCHES "\\] ${name}\n")
    list(APPEND missing ${name})
  endif()
endforeach()
if(missing)
  message(FATAL_ERROR "not exported by their plain names: ${missing}")
endif()

if(NOT table MATCHES "12TavloManager10GetMessage" OR table MATCHES "GetMessageA")
  message(FATAL_ERROR "the managers' GetMessage members are not exported as GetMessage")
endif()
message(STATUS "${count} flat functions exported by their plain names")
