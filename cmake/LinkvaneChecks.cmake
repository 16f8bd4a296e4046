# The targets check-format and check-tidy. Include after everything that adds sources to linkvane.
#
# check-tidy remembers what it has found good: a folder of which nothing has changed is not read again.

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

# One stamp a folder, and one for the small ones, whose sources are read as one: nearly all of the time goes into
# Windows' headers. Its dependency file comes from the cross compiler, so that a changed header has every folder
# that includes it read again.
function(linkvane_add_tidy_check)
  linkvane_clang_flags(clang_flags)
  set(folders "$<TARGET_PROPERTY:linkvane,INCLUDE_DIRECTORIES>")
  set(definitions "$<TARGET_PROPERTY:linkvane,COMPILE_DEFINITIONS>")
  # Each of the two becomes a list when the build files are written; until then it must stay whole.
  set(flags "-std=c++20;-I$<JOIN:${folders},;-I>;-D$<JOIN:${definitions},;-D>")

  get_target_property(all linkvane SOURCES)
  list(APPEND all ${CMAKE_CURRENT_SOURCE_DIR}/service/main.cpp)
  set(stamps)
  set(small "bios|registry|service")
  set(each ${LINKVANE_FOLDERS})
  list(FILTER each EXCLUDE REGEX "^(${small})$")
  foreach(group IN LISTS small each)
    set(sources ${all})
    list(FILTER sources INCLUDE REGEX "^${CMAKE_CURRENT_SOURCE_DIR}/(${group})/.*\\.cpp$")
    string(REPLACE "|" "_" name ${group})
    set(together ${CMAKE_BINARY_DIR}/checks/tidy/${name}.cpp)
    add_custom_command(
      OUTPUT ${together}.stamp
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/lib/clang-tidy-together ${CLANG_TIDY} ${together} ${sources} --
        ${clang_flags} "${flags}" -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      COMMAND ${CMAKE_CXX_COMPILER} "${flags}" -MM -MT ${together}.stamp -MF ${together}.d ${together}
      COMMAND ${CMAKE_COMMAND} -E touch ${together}.stamp
      DEPENDS ${sources} .clang-tidy scripts/lib/clang-tidy-together
      DEPFILE ${together}.d
      COMMENT "Checking ${name} with clang-tidy"
      COMMAND_EXPAND_LISTS VERBATIM)
    list(APPEND stamps ${together}.stamp)
  endforeach()
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/checks/tidy)
  add_custom_target(check-tidy DEPENDS ${stamps})
endfunction()

if(CLANG_TIDY AND MINGW)
  linkvane_add_tidy_check()
else()
  linkvane_add_missing_check(check-tidy clang-tidy)
endif()
