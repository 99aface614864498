# One place for the flags that every target shares.
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# The board has little memory: optimised, but not for speed at any size.
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  # GCC notes at many an iterator that compilers before 7.1 passed it otherwise.
  add_compile_options(-Wno-psabi)
endif()
if(ZELAF_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

# What nothing refers to is left out of the libraries (SharedLibrary.cmake).
add_compile_options(-ffunction-sections -fdata-sections)

# Where a long has 32 bits, a file system with 64-bit inode numbers, or a file dated beyond 2038, would make each look
# at a store fail. No exported record holds a file's size or a time.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# A trace names its source file from the source folder on, whatever folder the build ran in.
add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")

if(ZELAF_SANITIZE)
  add_compile_options(-fsanitize=${ZELAF_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZELAF_SANITIZE})
  if(ZELAF_SANITIZE MATCHES "undefined")
    # A finding ends the test; the default would print it and go on.
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

if(ZELAF_FUZZ)
  # Counts what an input reaches; the fuzzer itself is linked by the harnesses.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

find_package(Threads REQUIRED)
