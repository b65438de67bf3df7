# Install step of the reference host's data: its sample configuration, the
# configuration's stored digest and the library's (the default firmware
# image). Runs at install time, when CMAKE_INSTALL_PREFIX is the prefix
# being installed to: the prefix /usr (also <dir>/usr, as when packaging)
# keeps etc/ and var/ beside it, as GNU installations do; any other prefix
# holds them itself. fipsval reckons its default locations the same way.
# In: FIPSVAL_CONFIG, FIPSVAL_LIBRARY (the built library), FIPSVAL_STAGE (a
# scratch directory in the build tree).
if(CMAKE_INSTALL_PREFIX MATCHES "^(.*)/usr/?$")
  set(root "${CMAKE_MATCH_1}")
else()
  string(REGEX REPLACE "/$" "" root "${CMAKE_INSTALL_PREFIX}")
endif()
set(config_dir "${root}/etc/fipsval")
set(data_dir "${root}/var/lib/fipsval")
get_filename_component(library_name "${FIPSVAL_LIBRARY}" NAME)

file(SHA256 "${FIPSVAL_CONFIG}" config_digest)
file(SHA256 "${FIPSVAL_LIBRARY}" library_digest)
file(MAKE_DIRECTORY "${FIPSVAL_STAGE}")
file(WRITE "${FIPSVAL_STAGE}/vpn.cfg.sha256" "${config_digest}  vpn.cfg\n")
file(WRITE "${FIPSVAL_STAGE}/firmware.sha256" "${library_digest}  ${library_name}\n")

file(INSTALL DESTINATION "${config_dir}" TYPE FILE FILES "${FIPSVAL_CONFIG}")
file(INSTALL DESTINATION "${data_dir}" TYPE FILE
     FILES "${FIPSVAL_STAGE}/vpn.cfg.sha256" "${FIPSVAL_STAGE}/firmware.sha256")
