# sigweave_module(NAME SOURCES file... [LIBRARIES lib...])
# One module library: a plug-in that a host opens with dlopen.
function(sigweave_module name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(${name} MODULE ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE sigweave::sigweave ${ARG_LIBRARIES})
  set_target_properties(${name} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY "${SIGWEAVE_MODULE_OUTPUT_DIRECTORY}")
endfunction()
