# Conformance: each suite runs on the CAVP tree (FIPSVAL_CAVP_DIR, by default
# ../shared/cavp beside the source tree) plus the project's own vectors, and
# every response must match NIST's answers or pass its mathematical check.
# Skipped, with a message, where the tree does not exist.
set(FIPSVAL_CONFORMANCE_WRAPPER "" CACHE STRING
    "Command put in front of `fipsval run` by the conformance tests (e.g. valgrind)")
if(FIPSVAL_QUICK_MONTE_CARLO)
  set(quick 1)
else()
  set(quick 0)
endif()
if(NOT IS_DIRECTORY "${FIPSVAL_CAVP_DIR}")
  message(STATUS "No CAVP vector tree at ${FIPSVAL_CAVP_DIR}: the conformance "
                 "tests will be skipped (set FIPSVAL_CAVP_DIR to run them)")
endif()
separate_arguments(wrapper UNIX_COMMAND "${FIPSVAL_CONFORMANCE_WRAPPER}")
foreach(suite AES AES-WF 3DES SHA1 SHA256 HMAC RSA2 DRBG800-90A SSH TLS)
  add_test(NAME conformance_${suite}
    COMMAND sandbox_run sh ${CMAKE_CURRENT_SOURCE_DIR}/conformance.sh
            $<TARGET_FILE:fipsval_cli> ${FIPSVAL_CAVP_DIR}
            ${PROJECT_SOURCE_DIR}/vectors ${suite} ${quick} ${wrapper})
  set_tests_properties(conformance_${suite} PROPERTIES
    SKIP_RETURN_CODE 77 TIMEOUT 3000 LABELS conformance)
endforeach()
