# Writes the reference host's data directory: the sample configuration with
# its reference digest, and the digest of the library as the firmware image.
file(MAKE_DIRECTORY ${DATA_DIR})
configure_file(${CONFIG} ${DATA_DIR}/vpn.cfg COPYONLY)
file(SHA256 ${DATA_DIR}/vpn.cfg config_digest)
file(WRITE ${DATA_DIR}/vpn.cfg.sha256 "${config_digest}  ${DATA_DIR}/vpn.cfg\n")
file(SHA256 ${LIBRARY} library_digest)
file(WRITE ${DATA_DIR}/firmware.sha256 "${library_digest}  ${LIBRARY}\n")
