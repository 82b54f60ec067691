# Checks that a document survives `kmeta roundtrip`: exit status 0, no parse report, a tree
# written back, and that the output read again gives itself (a fixed point).
#   cmake -DKMETA=... -DDOCUMENT=... [-DSCHEMAS=a.xml;b.xml] -DWORK_DIR=... -P roundtrip_check.cmake
set(schema_arguments "")
foreach(schema IN LISTS SCHEMAS)
  list(APPEND schema_arguments --schemas ${schema})
endforeach()

function(roundtrip input output)
  execute_process(COMMAND ${KMETA} roundtrip ${schema_arguments} ${input}
    OUTPUT_VARIABLE text ERROR_VARIABLE reports RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "kmeta roundtrip ${input} exited with ${status}: ${reports}")
  endif()
  if(NOT reports STREQUAL "")
    message(FATAL_ERROR "kmeta roundtrip ${input} reported:\n${reports}")
  endif()
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

file(MAKE_DIRECTORY ${WORK_DIR})
roundtrip(${DOCUMENT} first)
if(NOT first MATCHES "<root [^>]*name=")
  message(FATAL_ERROR "no tree written back for ${DOCUMENT}:\n${first}")
endif()
file(WRITE ${WORK_DIR}/first.xml "${first}")
roundtrip(${WORK_DIR}/first.xml second)
if(NOT first STREQUAL second)
  file(WRITE ${WORK_DIR}/second.xml "${second}")
  message(FATAL_ERROR "not a fixed point: compare ${WORK_DIR}/first.xml and second.xml")
endif()
