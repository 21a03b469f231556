# Runs GRAPH with the program HOST and the module path MODULE_PATH; its table of results must have each of the ROWS.
execute_process(COMMAND ${HOST} run ${GRAPH} --module-path ${MODULE_PATH}
                OUTPUT_VARIABLE table RESULT_VARIABLE code)
message("${table}")
if(NOT code EQUAL 0)
  message(FATAL_ERROR "the run ended with ${code}")
endif()
foreach(row IN LISTS ROWS)
  string(REGEX REPLACE "([][+.*?^$()|\\])" "\\\\\\1" words "${row}")
  string(REPLACE " " " +" words "${words}")
  if(NOT "\n${table}" MATCHES "\n${words} *\n")
    message(FATAL_ERROR "the table has no row: ${row}")
  endif()
endforeach()
