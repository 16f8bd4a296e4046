# Joins page.html with the bundled styles and scripts, and writes it as C++ source.
#
#   cmake -D HTML=... -D STYLES=... -D SCRIPT=... -D LICENCES=... -D OUTPUT=... -P EmbedPage.cmake
#
# The page's content security policy names the script and the styles by their hashes: the browser runs
# nothing else, whatever the data holds, and loads nothing.
cmake_policy(VERSION 3.25)

# The base64 form of a hexadecimal text.
function(base64_of_hex hex result)
  set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  string(LENGTH ${hex} length)
  set(text)
  foreach(position RANGE 0 ${length} 6)
    math(EXPR left "${length} - ${position}")
    if(left LESS_EQUAL 0)
      break()
    endif()
    string(SUBSTRING ${hex} ${position} 6 group)
    string(LENGTH ${group} group_length)
    string(SUBSTRING ${group}00000 0 6 group)
    foreach(shift 18 12 6 0)
      math(EXPR digit "(0x${group} >> ${shift}) & 63")
      string(SUBSTRING ${digits} ${digit} 1 digit)
      string(APPEND text ${digit})
    endforeach()
    if(group_length EQUAL 4)
      string(REGEX REPLACE ".$" "=" text ${text})
    elseif(group_length EQUAL 2)
      string(REGEX REPLACE "..$" "==" text ${text})
    endif()
  endforeach()
  set(${result} ${text} PARENT_SCOPE)
endfunction()

# What a content security policy calls the file.
function(policy_hash file result)
  file(SHA256 ${file} hex)
  base64_of_hex(${hex} base64)
  set(${result} "'sha256-${base64}'" PARENT_SCOPE)
endfunction()

# The bytes of a text as the elements of an array; `name` is a file to pass them through.
function(array_of_text name text result)
  file(WRITE ${name} "${text}")
  file(READ ${name} hex HEX)
  file(REMOVE ${name})
  string(REGEX REPLACE "(................................)" "\\1\n" hex "${hex}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  set(${result} "${bytes}" PARENT_SCOPE)
endfunction()

file(READ ${HTML} page)
file(READ ${STYLES} styles)
file(READ ${SCRIPT} script)
file(READ ${LICENCES} licences)
if(styles MATCHES "</style" OR script MATCHES "</script" OR script MATCHES "<!--")
  message(FATAL_ERROR "The styles or the script would end their own element.")
endif()
policy_hash(${STYLES} styles_hash)
policy_hash(${SCRIPT} script_hash)

string(REPLACE "@STYLES_HASH@" "${styles_hash}" page "${page}")
string(REPLACE "@SCRIPT_HASH@" "${script_hash}" page "${page}")
string(REPLACE "@LICENCES@" "${licences}" page "${page}")
string(REPLACE "@STYLES@" "${styles}" page "${page}")
string(REPLACE "@SCRIPT@" "${script}" page "${page}")

string(FIND "${page}" "@DATA@" data_at)
if(data_at EQUAL -1)
  message(FATAL_ERROR "${HTML} has no place for the data.")
endif()
math(EXPR after_at "${data_at} + 6")
string(SUBSTRING "${page}" 0 ${data_at} before)
string(SUBSTRING "${page}" ${after_at} -1 after)
array_of_text(${OUTPUT}.bytes "${before}" before_bytes)
array_of_text(${OUTPUT}.bytes "${after}" after_bytes)

file(WRITE ${OUTPUT} "\
#include \"doctor/page/page_template.h\"

namespace Doctor {
namespace {

constexpr unsigned char kBefore[] = {
${before_bytes}};

constexpr unsigned char kAfter[] = {
${after_bytes}};

} // namespace

std::string_view PageBeforeData()
{
    return {reinterpret_cast<const char*>(kBefore), sizeof(kBefore)};
}

std::string_view PageAfterData()
{
    return {reinterpret_cast<const char*>(kAfter), sizeof(kAfter)};
}

} // namespace Doctor
")
