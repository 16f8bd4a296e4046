# What the programs say about themselves, and the messages for the event viewer.
set(resources_source ${CMAKE_CURRENT_SOURCE_DIR}/resources)
set(resources_binary ${CMAKE_CURRENT_BINARY_DIR}/resources)

# linkvane_add_resources(TARGET PROGRAM DESCRIPTION): TARGET has a program's version resource and manifest.
# Whoever links it carries them. Resource compilers report no included files, so the script is generated
# whole: it changes, and is compiled anew, when the version or the manifest changes.
function(linkvane_add_resources target LINKVANE_PROGRAM LINKVANE_DESCRIPTION)
  set(made ${resources_binary}/${LINKVANE_PROGRAM})
  configure_file(${resources_source}/program.manifest.in ${made}.manifest @ONLY)
  file(SHA256 ${made}.manifest LINKVANE_MANIFEST_DIGEST)
  configure_file(${resources_source}/program.rc.in ${made}.rc @ONLY)
  add_library(${target} INTERFACE)
  target_sources(${target} INTERFACE ${made}.rc)
  target_include_directories(${target} INTERFACE ${resources_binary})
  if(MSVC)
    # The linker would add a manifest of its own.
    target_link_options(${target} INTERFACE /MANIFEST:NO)
  endif()
endfunction()

# The message table, by GNU's message compiler or Microsoft's, which take the same arguments. Each goes
# with its own resource compiler; and elsewhere than on Windows mc is another program.
if(MSVC)
  set(message_compilers mc)
else()
  set(message_compilers ${LINKVANE_MINGW}-windmc windmc)
endif()
find_program(LINKVANE_MESSAGE_COMPILER NAMES ${message_compilers}
  HINTS "$ENV{WindowsSdkVerBinPath}/x64"
    "C:/Program Files (x86)/Windows Kits/10/bin/${CMAKE_VS_WINDOWS_TARGET_PLATFORM_VERSION}/x64"
  REQUIRED)
mark_as_advanced(LINKVANE_MESSAGE_COMPILER)
file(MAKE_DIRECTORY ${resources_binary})
execute_process(
  COMMAND ${LINKVANE_MESSAGE_COMPILER} -h ${resources_binary} -r ${resources_binary} ${resources_source}/messages.mc
  COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${resources_source}/messages.mc)

linkvane_add_resources(linkvane_resources LinkvaneService "Linkvane Service")
target_sources(linkvane_resources INTERFACE ${resources_binary}/messages.rc)
linkvane_add_resources(linkvane_doctor_resources LinkvaneDoctor "Linkvane Doctor")
