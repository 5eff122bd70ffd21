# Cross build for WebAssembly with 128-bit vectors; its programs run in node.
include(/usr/share/emscripten/cmake/Modules/Platform/Emscripten.cmake)
# Nothing throws across the module's border, but the tests' own framework does inside it. Memory grows
# as images ask for it. The loader of this version finds its file by a path, and would fetch it.
add_compile_options(-fexceptions)
add_link_options(-fexceptions -sALLOW_MEMORY_GROWTH -sNODERAWFS -sEXIT_RUNTIME -sTOTAL_STACK=4MB
                 -O1)  # beyond that the loader is minified by programs that may not be there
set(CMAKE_CROSSCOMPILING_EMULATOR node --no-experimental-fetch)
