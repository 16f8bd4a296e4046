# What every target of ours is compiled and linked with.
add_library(linkvane_options INTERFACE)
target_compile_features(linkvane_options INTERFACE cxx_std_20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD_REQUIRED ON)

# linkvane_ship(TARGET): a program that is handed out. The linker's map tells the release which libraries
# became part of it.
function(linkvane_ship target)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  if(MINGW)
    target_link_options(${target} PRIVATE -Wl,-Map=$<TARGET_FILE:${target}>.map)
  endif()
endfunction()

# linkvane_count(TARGET): what counts its executed lines in a coverage build.
function(linkvane_count target)
  if(NOT LINKVANE_COVERAGE)
    return()
  endif()
  # Threads that count the same line at once would lose counts, and come to negative ones. A destructor of
  # an object that lives as long as the process would run when the counters are written already. That room
  # on the stack is free again would count as steps that only an exception takes.
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:--coverage>
    -O0 -fprofile-update=atomic -fno-use-cxa-atexit -fstack-reuse=none)
endfunction()

if(NOT WIN32)
  target_compile_options(linkvane_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fstack-protector-strong)
  if(LINKVANE_SANITIZE)
    target_compile_options(linkvane_options INTERFACE -fsanitize=${LINKVANE_SANITIZERS} -fno-sanitize-recover=all)
    target_link_options(linkvane_options INTERFACE -fsanitize=${LINKVANE_SANITIZERS})
  endif()
  return()
endif()

# Windows 8 is the oldest system supported. The declarations are those of Windows 7: what came later is looked
# up at run time. Wide-character API throughout.
target_compile_definitions(linkvane_options INTERFACE
  UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601 WINVER=0x0601 STRICT)

if(MSVC)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
  # CMake itself gives /EHsc. The tests' stand-ins throw out of functions that are declared extern "C",
  # which the c would have the compiler rule out. /guard:cf is for the compiler and the linker. C4127 is
  # about constant conditions, of which templates are full.
  target_compile_options(linkvane_options INTERFACE
    "$<$<COMPILE_LANGUAGE:CXX>:/W4;/wd4127;/WX;/permissive-;/utf-8;/EHsc-;/GS;/guard:cf>")
  target_compile_definitions(linkvane_options INTERFACE _CRT_SECURE_NO_WARNINGS)
  target_link_options(linkvane_options INTERFACE
    /INCREMENTAL:NO /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /guard:cf /CETCOMPAT)
else()
  target_compile_options(linkvane_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fstack-protector-strong>)
  # For targets with a precompiled header, inside which g++ 12 no longer knows the library's own copies for the
  # library's, and warns of those that it takes for overruns.
  if(NOT CMAKE_DISABLE_PRECOMPILE_HEADERS)
    set(LINKVANE_PRECOMPILED_OPTIONS -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  endif()
  target_link_options(linkvane_options INTERFACE
    -static -municode -fstack-protector-strong -Wl,--dynamicbase,--high-entropy-va,--nxcompat)
  # The same sources give the same bytes, wherever and whenever they are built. (A compiler cache may
  # have made paths relative to the build folder.)
  file(RELATIVE_PATH back_to_sources ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
  target_compile_options(linkvane_options INTERFACE
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=${back_to_sources}=)
  target_link_options(linkvane_options INTERFACE -Wl,--no-insert-timestamp)
  if(LINKVANE_UBSAN)
    target_compile_options(linkvane_options INTERFACE
      $<$<COMPILE_LANGUAGE:CXX>:-fsanitize=undefined -fsanitize-undefined-trap-on-error>
      # Windows' enumerations arrive with any number in them. Without -fstrict-enums, which is never
      # given, they are as wide as their type for g++, as they are for Microsoft's compiler.
      $<$<COMPILE_LANGUAGE:CXX>:-fno-sanitize=enum>)
  endif()
  if(LINKVANE_COVERAGE)
    target_link_options(linkvane_options INTERFACE --coverage)
  endif()
endif()
