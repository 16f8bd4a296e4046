# The targets check-format and check-tidy. Include after everything that adds sources to linkvane or to the
# doctor.
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
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/check-format
      ${CLANG_FORMAT} ${CMAKE_BINARY_DIR}/checks/format.stamp
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

# The sources of ours that a target is made of, by their full names.
function(linkvane_sources_of target result)
  get_target_property(sources ${target} SOURCES)
  get_target_property(folder ${target} SOURCE_DIR)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  list(TRANSFORM sources PREPEND "${folder}/" REGEX "^[^/]")
  string(REGEX REPLACE "([][+.*^$()|?])" "\\\\\\1" binary_folder "${CMAKE_BINARY_DIR}")
  list(FILTER sources EXCLUDE REGEX "^${binary_folder}/")
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

# Sources of the doctor that are not read yet.
set(LINKVANE_UNREAD
  doctor/analysis/analysis.cpp
  doctor/analysis/follower.cpp
  doctor/analysis/follower_cable.cpp
  doctor/analysis/follower_radios.cpp
  doctor/analysis/log_line.cpp
  doctor/analysis/report_picture.cpp
  doctor/analysis/report_text.cpp
  doctor/collect_command.cpp
  doctor/inspection/read_logs.cpp
  doctor/inspection/read_network.cpp
  doctor/inspection/read_radios.cpp
  doctor/inspection/read_registry.cpp
  doctor/inspection/read_service.cpp
  doctor/inspection/read_state.cpp
  doctor/inspection/registry_view.cpp
  doctor/inspection/report.cpp
  doctor/machine_now.cpp
  doctor/main.cpp
  doctor/page/page.cpp
  doctor/quiet_log.cpp
  doctor/status_command.cpp
  doctor/why_command.cpp
  doctor/zip_file.cpp
)

# One stamp a source. Its dependency file comes from the cross compiler, so that a changed header has
# every source that includes it read again.
function(linkvane_add_tidy_stamps target clang_flags result)
  set(stamps)
  linkvane_sources_of(${target} sources)
  set(rules ${CMAKE_CURRENT_SOURCE_DIR}/.clang-tidy ${CMAKE_CURRENT_SOURCE_DIR}/doctor/.clang-tidy)
  set(folders "$<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>")
  set(libraries "$<TARGET_PROPERTY:${target},SYSTEM_INCLUDE_DIRECTORIES>")
  set(definitions "$<TARGET_PROPERTY:${target},COMPILE_DEFINITIONS>")
  # Each of these becomes a list when the build files are written; until then it must stay whole.
  set(flags -std=c++20
    "$<$<BOOL:${folders}>:-I$<JOIN:${folders},;-I>>"
    "$<$<BOOL:${libraries}>:-isystem$<JOIN:${libraries},;-isystem>>"
    "-D$<JOIN:${definitions},;-D>")

  foreach(source IN LISTS sources)
    cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} OUTPUT_VARIABLE name)
    if(name IN_LIST LINKVANE_UNREAD)
      continue()
    endif()
    set(stamp ${CMAKE_BINARY_DIR}/checks/tidy/${name}.stamp)
    cmake_path(GET stamp PARENT_PATH stamp_folder)
    file(MAKE_DIRECTORY ${stamp_folder})
    add_custom_command(
      OUTPUT ${stamp}
      COMMAND ${CMAKE_CXX_COMPILER} "${flags}" -MM -MT ${stamp} -MF ${stamp}.d ${source}
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/lib/clang-tidy-quietly ${CLANG_TIDY} ${source} --
        ${clang_flags} "${flags}" -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
      DEPENDS ${source} ${rules}
      DEPFILE ${stamp}.d
      COMMENT "Checking ${name} with clang-tidy"
      COMMAND_EXPAND_LISTS VERBATIM)
    list(APPEND stamps ${stamp})
  endforeach()
  set(${result} ${stamps} PARENT_SCOPE)
endfunction()

if(CLANG_TIDY AND MINGW)
  linkvane_clang_flags(clang_flags)
  set(stamps)
  # The service, and what looks at it. What is made for it while it is built is not read.
  foreach(target linkvane LinkvaneService linkvane_analysis linkvane_inspection linkvane_page linkvane_machine
      LinkvaneDoctor)
    linkvane_add_tidy_stamps(${target} "${clang_flags}" target_stamps)
    list(APPEND stamps ${target_stamps})
  endforeach()
  add_custom_target(check-tidy DEPENDS ${stamps})
else()
  linkvane_add_missing_check(check-tidy clang-tidy)
endif()
