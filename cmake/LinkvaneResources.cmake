# linkvane_resources: the version resource, the manifest and the messages for the event viewer.
# Whoever links it carries them. Resource compilers report no included files, so the script is
# generated whole: it changes, and is compiled anew, when the version or the manifest changes.
set(resources_source ${CMAKE_CURRENT_SOURCE_DIR}/resources)
set(resources_binary ${CMAKE_CURRENT_BINARY_DIR}/resources)
configure_file(${resources_source}/linkvane_service.manifest.in
  ${resources_binary}/linkvane_service.manifest @ONLY)
file(SHA256 ${resources_binary}/linkvane_service.manifest LINKVANE_MANIFEST_DIGEST)
configure_file(${resources_source}/linkvane_service.rc.in ${resources_binary}/linkvane_service.rc @ONLY)

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
execute_process(
  COMMAND ${LINKVANE_MESSAGE_COMPILER} -h ${resources_binary} -r ${resources_binary} ${resources_source}/messages.mc
  COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${resources_source}/messages.mc)

add_library(linkvane_resources INTERFACE)
target_sources(linkvane_resources INTERFACE
  ${resources_binary}/linkvane_service.rc
  ${resources_binary}/messages.rc)
target_include_directories(linkvane_resources INTERFACE ${resources_binary})
if(MSVC)
  # The linker would add a manifest of its own.
  target_link_options(linkvane_resources INTERFACE /MANIFEST:NO)
endif()
