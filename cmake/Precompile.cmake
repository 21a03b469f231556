# Headers that most sources of a target include are read once for all of them, which takes a third of the time of
# compiling one. Not with ccache, which takes nothing from its store that was compiled with such a header unless it is
# told to. Sources include what they use all the same: builds with ccache and clang-tidy read them without it.
get_filename_component(compiler ${CMAKE_CXX_COMPILER} REALPATH)
if("${compiler};${CMAKE_CXX_COMPILER_LAUNCHER}" MATCHES ccache)
  set(precompile OFF)
else()
  set(precompile ON)
endif()
option(SIGWEAVE_PRECOMPILE "Precompile the headers that most sources include" ${precompile})

# sigweave_precompile(TARGET): for a target with many sources.
function(sigweave_precompile target)
  if(SIGWEAVE_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE <algorithm> <atomic> <chrono> <cmath> <cstring> <filesystem> <fstream>
      <functional> <map> <memory> <mutex> <optional> <ranges> <set> <span> <string> <string_view> <utility> <vector>)
    # g++ 12 does not take the system's code in such a header for the system's, and guesses about what it could do.
    set(guesses -Wno-array-bounds -Wno-dangling-pointer -Wno-free-nonheap-object -Wno-maybe-uninitialized
        -Wno-stringop-overflow -Wno-stringop-overread -Wno-stringop-truncation -Wno-use-after-free)
    target_compile_options(${target} PRIVATE "$<$<CXX_COMPILER_ID:GNU>:${guesses}>")
  endif()
endfunction()
