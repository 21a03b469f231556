include(${CMAKE_CURRENT_LIST_DIR}/sigweave-targets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/SigweaveModule.cmake)
