# linkvane_resources: the version resource and the manifest. Whoever links it carries both. Resource
# compilers report no included files, so the script is generated whole: it changes, and is compiled
# anew, when the version or the manifest changes.
set(resources_source ${CMAKE_CURRENT_SOURCE_DIR}/resources)
set(resources_binary ${CMAKE_CURRENT_BINARY_DIR}/resources)
configure_file(${resources_source}/linkvane_service.manifest.in
  ${resources_binary}/linkvane_service.manifest @ONLY)
file(SHA256 ${resources_binary}/linkvane_service.manifest LINKVANE_MANIFEST_DIGEST)
configure_file(${resources_source}/linkvane_service.rc.in ${resources_binary}/linkvane_service.rc @ONLY)

add_library(linkvane_resources INTERFACE)
target_sources(linkvane_resources INTERFACE ${resources_binary}/linkvane_service.rc)
target_include_directories(linkvane_resources INTERFACE ${resources_binary})
if(MSVC)
  # The linker would add a manifest of its own.
  target_link_options(linkvane_resources INTERFACE /MANIFEST:NO)
endif()
