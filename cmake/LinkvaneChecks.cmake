# The targets check-format and check-tidy. Include after everything that adds sources to linkvane.
#
# Both remember what they have found good: an unchanged source is not read again.

find_program(CLANG_FORMAT clang-format)
find_program(CLANG_TIDY clang-tidy)
mark_as_advanced(CLANG_FORMAT CLANG_TIDY)

# A target that cannot do its work says so, and fails.
function(linkvane_add_missing_check name tool)
  add_custom_target(${name}
    COMMAND ${CMAKE_COMMAND} -E echo "${tool} was not found; install it and run cmake --fresh --preset cross"
    COMMAND ${CMAKE_COMMAND} -E false
    VERBATIM)
endfunction()

if(CLANG_FORMAT AND NOT CMAKE_HOST_WIN32)
  add_custom_target(check-format
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/check-format ${CLANG_FORMAT}
    COMMENT "Checking the formatting"
    VERBATIM)
else()
  linkvane_add_missing_check(check-format clang-format)
endif()

# clang reads the sources as the cross compiler does: same target, same C++ library, same Windows
# headers. The compiler's own headers (intrinsics) are left to clang's.
function(linkvane_clang_flags result)
  execute_process(
    COMMAND ${CMAKE_CXX_COMPILER} -E -x c++ - -v
    INPUT_FILE /dev/null OUTPUT_QUIET ERROR_VARIABLE search_list COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "\n /[^\n]+" folders "${search_list}")
  set(flags --target=x86_64-w64-mingw32 -nostdinc++)
  foreach(folder IN LISTS folders)
    string(STRIP "${folder}" folder)
    if(folder MATCHES "/include/c\\+\\+" OR folder MATCHES "/x86_64-w64-mingw32/include$")
      get_filename_component(folder "${folder}" REALPATH)
      list(APPEND flags -isystem ${folder})
    endif()
  endforeach()
  set(${result} ${flags} PARENT_SCOPE)
endfunction()

# One stamp a source. Its dependency file comes from the cross compiler, so that a changed header has
# every source that includes it read again.
function(linkvane_add_tidy_check)
  linkvane_clang_flags(clang_flags)
  get_target_property(sources linkvane SOURCES)
  list(APPEND sources ${CMAKE_CURRENT_SOURCE_DIR}/service/main.cpp)
  set(folders "$<TARGET_PROPERTY:linkvane,INCLUDE_DIRECTORIES>")
  set(definitions "$<TARGET_PROPERTY:linkvane,COMPILE_DEFINITIONS>")
  # Each of the two becomes a list when the build files are written; until then it must stay whole.
  set(folder_flags "-I$<JOIN:${folders},;-I>")
  set(definition_flags "-D$<JOIN:${definitions},;-D>")

  set(stamps)
  foreach(source IN LISTS sources)
    cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} OUTPUT_VARIABLE name)
    if(NOT name MATCHES "\\.cpp$" OR name MATCHES "^\\.\\.")
      continue()
    endif()
    set(stamp ${CMAKE_BINARY_DIR}/checks/tidy/${name}.stamp)
    cmake_path(GET stamp PARENT_PATH stamp_folder)
    file(MAKE_DIRECTORY ${stamp_folder})
    add_custom_command(
      OUTPUT ${stamp}
      COMMAND ${CMAKE_CXX_COMPILER} -std=c++20 "${folder_flags}" "${definition_flags}"
        -MM -MT ${stamp} -MF ${stamp}.d ${source}
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/lib/clang-tidy-quietly ${CLANG_TIDY} ${source} --
        ${clang_flags} -std=c++20 "${folder_flags}" "${definition_flags}"
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
      DEPENDS ${source} ${CMAKE_CURRENT_SOURCE_DIR}/.clang-tidy
      DEPFILE ${stamp}.d
      COMMENT "Checking ${name} with clang-tidy"
      COMMAND_EXPAND_LISTS VERBATIM)
    list(APPEND stamps ${stamp})
  endforeach()
  add_custom_target(check-tidy DEPENDS ${stamps})
endfunction()

if(CLANG_TIDY AND MINGW)
  linkvane_add_tidy_check()
else()
  linkvane_add_missing_check(check-tidy clang-tidy)
endif()
