# Compiler settings shared by every room, and the function that declares one.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# A narrowing that is meant is written as a cast. Where the tests are built a warning is an error; who packages this with a
# compiler that knows more warnings builds without them.
add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion -Wno-missing-field-initializers)
if(TESSALINE_TESTS AND NOT EMSCRIPTEN)
  add_compile_options(-Werror)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)  # the standard containers look at their indices
endif()

# Results must not depend on the compiler's mood: a*b+c is two roundings wherever it is not written as one,
# in the native and in the Windows build alike. errno of sqrt() is never read, and no floating-point trap is
# ever enabled; neither option changes a value.
add_compile_options(-ffp-contract=off -fno-math-errno -fno-trapping-math)

if(TESSALINE_SANITIZE)
  # Behind the build type's own flags, so that these count. Optimizing further takes the compiler twice as long for
  # checks that are the same; lines are enough for a report.
  add_compile_options(-Og -g1)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")  # programs in C call libtessaline.so, which is C++ inside
    add_link_options($<$<LINK_LANGUAGE:C>:-fsanitize-link-c++-runtime>)
    link_libraries($<$<LINK_LANGUAGE:C>:stdc++>)
  endif()
endif()

# libFuzzer comes with clang alone.
set(TESSALINE_FUZZ OFF)
if(TESSALINE_SANITIZE AND TESSALINE_TESTS AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(TESSALINE_FUZZ ON)
endif()

# What an overrun finds is as little as possible: programs and libraries lie at random addresses, tables of addresses are
# read-only before the first call, a stack frame that was written over ends the program, and so does a copy past the end of
# what the compiler knows the size of. The Windows linker gives the first two unasked (tests/module/module_file_test), and
# stacks grow page by page there; the guard's value is ours (platform/stack_guard_win32.cpp). A browser's engine lies in a
# memory of its own. Sanitizers see more of the same.
option(TESSALINE_HARDEN "Position-independent programs, tables that cannot be written, guarded stacks, checked copies" ON)
if(EMSCRIPTEN OR TESSALINE_SANITIZE OR TESSALINE_SANITIZE_THREADS)
  set(TESSALINE_HARDEN OFF)
endif()
if(TESSALINE_HARDEN)
  set(fortify 2)
  if(WIN32)
    add_link_options(-fstack-protector-strong)  # for the compiler's library, which has the checked copies
  else()
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES C CXX)
    add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
    include(CheckCXXCompilerFlag)
    foreach(flag IN ITEMS -fstack-clash-protection -fcf-protection)  # of some processors only
      string(MAKE_C_IDENTIFIER "TESSALINE_HAS${flag}" has)
      check_cxx_compiler_flag(${flag} ${has})
      if(${has})
        add_compile_options(${flag})
      endif()
    endforeach()
    if(CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12)  # GCC and Clang alike: sizes known only while it runs, too
      set(fortify 3)
    endif()
  endif()
  add_compile_options(-fstack-protector-strong
    "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${fortify}>")  # only where it optimizes
endif()

if(TESSALINE_SANITIZE_THREADS)
  add_compile_options(-O1 -g1 -fsanitize=thread)
  add_compile_definitions(TESSALINE_ONE_VECTOR_WIDTH)
  add_link_options(-fsanitize=thread)
endif()

# GCC for Windows keeps the stack aligned to 16 bytes only, yet spills 32- and 64-byte vectors with aligned
# moves (some builds of the compiler; Debian 12's already emits unaligned ones). The assembler is told to turn those
# into unaligned ones. tests/fft/vector_engine_test.cpp crashes where aligned spills reach the program.
if(MINGW)
  add_compile_options(-Wa,-muse-unaligned-vector-move)
  # A guarded static makes the compiler's thread library take two handles of the loading thread, which it does not
  # give back when a DLL is freed. The program is used by one thread at a time.
  add_compile_options(-fno-threadsafe-statics)
  add_link_options(-static)
endif()

# Debian 12's library for browsers is older than its compiler: what the engine misses there is in web/.
if(EMSCRIPTEN)
  set(CMAKE_POSITION_INDEPENDENT_CODE OFF)  # one program at a fixed place, and smaller
  add_compile_options(-msimd128 -pthread -fwasm-exceptions "SHELL:-include ${PROJECT_SOURCE_DIR}/web/missing_library.h")
  add_link_options(-msimd128 -fwasm-exceptions)
endif()

# Compilers spend most of their time on headers, above all on those that tests and doors include. What is shipped is compiled
# file by file all the same (./run, ./package): there each file shows that it includes what it uses.
option(TESSALINE_TOGETHER "Compile several files of a test or a room as one; ./test does" OFF)
function(tessaline_compile_together target)
  if(TESSALINE_TOGETHER)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON)
  endif()
endfunction()

# For files that only say which options there are: what the library makes of them is much code, which runs once.
function(tessaline_compile_small)
  if(CMAKE_BUILD_TYPE STREQUAL "Release")
    set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS -Os)
  endif()
endfunction()

# tessaline_room(NAME SOURCES a.cpp b.cpp DEPENDS other rooms)
set(TESSALINE_ENGINE platform image fft removal restoration tiling)
option(TESSALINE_FUZZ_ENGINE "Fuzzers see the engine's branches, too" OFF)

# One static library per folder. Includes are written from the top of the tree ("buffers/buffer_table.h").
function(tessaline_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;DEPENDS" ${ARGN})
  if(EMSCRIPTEN OR TESSALINE_SANITIZE_THREADS)  # where vectors have one width
    list(FILTER ROOM_SOURCES EXCLUDE REGEX "_avx(2|512)\\.cpp$")
  endif()
  add_library(tessaline_${name} STATIC ${ROOM_SOURCES})
  # Not where files are mostly code, with constants of their own that share a name.
  if(NOT name MATCHES "^(fft|restoration)$")
    tessaline_compile_together(tessaline_${name})
  endif()
  target_include_directories(tessaline_${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  # The fuzzers see which ways their inputs take through the rooms; in the loops over pixels that takes longer than the
  # work itself, so there only where they search for long.
  if(TESSALINE_FUZZ AND (TESSALINE_FUZZ_ENGINE OR NOT name IN_LIST TESSALINE_ENGINE))
    target_compile_options(tessaline_${name} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
  if(TESSALINE_SANITIZE AND name IN_LIST TESSALINE_ENGINE)
    target_compile_options(tessaline_${name} PRIVATE -O2)
  elseif(TESSALINE_SANITIZE AND name MATCHES "^(cli|testhost)$")  # much code and little arithmetic
    target_compile_options(tessaline_${name} PRIVATE -O0)
  endif()
  foreach(room IN LISTS ROOM_DEPENDS)
    target_link_libraries(tessaline_${name} PUBLIC tessaline_${room})
  endforeach()
endfunction()
