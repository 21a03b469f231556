set(SIGWEAVE_CMAKE_FOLDER ${CMAKE_CURRENT_LIST_DIR})

# sigweave_module(NAME SOURCES file... [LIBRARIES lib...])
# One module library: a plug-in that a host opens with dlopen.
function(sigweave_module name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(${name} MODULE ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE sigweave::sigweave ${ARG_LIBRARIES})
  set_target_properties(${name} PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(SIGWEAVE_MODULE_OUTPUT_DIRECTORY)
    set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${SIGWEAVE_MODULE_OUTPUT_DIRECTORY}")
  endif()
endfunction()

# sigweave_module_test(TARGET): a test "TARGET.check" that puts a module library through `sigweave check-module`.
function(sigweave_module_test target)
  if(SIGWEAVE_HOST)
    add_test(NAME ${target}.check COMMAND ${SIGWEAVE_HOST} check-module $<TARGET_FILE:${target}>)
  else()
    message(WARNING "The program sigweave was not found; ${target} is not tested.")
  endif()
endfunction()

# sigweave_graph_test(GRAPH MODULES target... [ROWS row...])
# A test "GRAPH.check" that finds no mistake in a graph, and a test "GRAPH.run" that runs it to its end with the module
# libraries of these targets and those that came with the host. Each row must be one of the table of results; its words
# stand with any number of spaces between them.
function(sigweave_graph_test graph)
  cmake_parse_arguments(ARG "" "" "MODULES;ROWS" ${ARGN})
  if(NOT SIGWEAVE_HOST)
    message(WARNING "The program sigweave was not found; ${graph} is not tested.")
    return()
  endif()
  set(path "")
  foreach(module ${ARG_MODULES})
    string(APPEND path "$<TARGET_FILE_DIR:${module}>:")
  endforeach()
  get_filename_component(file ${graph} ABSOLUTE)
  add_test(NAME ${graph}.check COMMAND ${SIGWEAVE_HOST} check ${file} --module-path ${path})
  add_test(NAME ${graph}.run
           COMMAND ${CMAKE_COMMAND} -DHOST=${SIGWEAVE_HOST} -DGRAPH=${file} -DMODULE_PATH=${path} "-DROWS=${ARG_ROWS}"
                   -P ${SIGWEAVE_CMAKE_FOLDER}/SigweaveGraphTest.cmake)
endfunction()
