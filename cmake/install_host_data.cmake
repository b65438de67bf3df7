# Install step of the reference host's data: its sample configuration, the
# configuration's stored digest and the library's (the default firmware
# image). Runs at install time, when CMAKE_INSTALL_PREFIX is the prefix
# being installed to: the prefix /usr (also <dir>/usr, as when packaging)
# keeps etc/ and var/ beside it, as GNU installations do; any other prefix
# holds them itself. fipsval reckons its default locations the same way.
# In: FIPSVAL_CONFIG, FIPSVAL_LIBRARY (the built library), and
# FIPSVAL_CONFIG_DIGEST: ON to write only the configuration's digest.
#
# The configuration and its digest belong to the administrator once they
# exist: an edited configuration, re-hashed with `fipsval update-config`,
# must survive a re-install, so neither is ever overwritten here. The
# firmware digest describes the library being installed and is always
# written.
if(CMAKE_INSTALL_PREFIX MATCHES "^(.*)/usr/?$")
  set(root "${CMAKE_MATCH_1}")
else()
  string(REGEX REPLACE "/$" "" root "${CMAKE_INSTALL_PREFIX}")
endif()
set(config_dir "${root}/etc/fipsval")
set(data_dir "${root}/var/lib/fipsval")
set(config "$ENV{DESTDIR}${config_dir}/vpn.cfg")

# The digests are written in place (no file in the build tree, so that two
# installs can run at once).
function(write_digest name line)
  set(target "$ENV{DESTDIR}${data_dir}/${name}")
  message(STATUS "Installing: ${target}")
  file(WRITE "${target}" "${line}\n")
  set(CMAKE_INSTALL_MANIFEST_FILES ${CMAKE_INSTALL_MANIFEST_FILES} "${data_dir}/${name}"
      PARENT_SCOPE)
endfunction()

if(FIPSVAL_CONFIG_DIGEST)
  if(EXISTS "$ENV{DESTDIR}${data_dir}/vpn.cfg.sha256")
    message(STATUS "Keeping: $ENV{DESTDIR}${data_dir}/vpn.cfg.sha256")
  else()
    file(SHA256 "${config}" config_digest)
    write_digest(vpn.cfg.sha256 "${config_digest}  vpn.cfg")
  endif()
  return()
endif()

if(EXISTS "${config}")
  message(STATUS "Keeping: ${config}")
else()
  file(INSTALL DESTINATION "${config_dir}" TYPE FILE FILES "${FIPSVAL_CONFIG}")
endif()
get_filename_component(library_name "${FIPSVAL_LIBRARY}" NAME)
file(SHA256 "${FIPSVAL_LIBRARY}" library_digest)
write_digest(firmware.sha256 "${library_digest}  ${library_name}")
