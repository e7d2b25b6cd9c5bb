# The posix thread model has std::thread and std::mutex; everything is linked statically, so the result
# imports system libraries only.
set(CMAKE_CXX_COMPILER ${MINGW}-g++-posix)
set(CMAKE_C_COMPILER ${MINGW}-gcc-posix)
set(CMAKE_RC_COMPILER ${MINGW}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
# Above -O2 this compiler warns of overflows that cannot happen.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "Flags of a release build")
