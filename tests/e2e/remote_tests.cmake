# qmload-cli on remote ports (rfc2217://) against ser2net and python3-serial's
# example server, each serving a qmload-sim pty on 127.0.0.1. Included by
# tests/e2e (Linux) and by tests/windows, where qmload-cli.exe runs under Wine
# against the Linux simulator ($QMLOAD_SIM, or the newest build/*/sim/qmload-sim).
set(remote_script ${CMAKE_SOURCE_DIR}/tests/e2e/remote.sh)
if(WIN32)
  set(remote_cases identify flash)
  set(remote_env "QMLOAD_CLI=$<TARGET_FILE:qmload-cli>;QMLOAD_E2E_IMAGE=$<TARGET_FILE:windows_e2e_image>"
    "QMLOAD_WRAP=${CMAKE_SOURCE_DIR}/scripts/wine-run.sh")
  set(remote_prefix windows.remote)
  set(remote_labels windows)
else()
  set(remote_cases identify flash pyserial mixed killed)
  set(remote_env "QMLOAD_CLI=$<TARGET_FILE:qmload-cli>;QMLOAD_E2E_IMAGE=$<TARGET_FILE:e2e_image>"
    "QMLOAD_SIM=$<TARGET_FILE:qmload-sim>")
  set(remote_prefix e2e.remote)
  set(remote_labels e2e)
endif()
foreach(case IN LISTS remote_cases)
  add_test(NAME ${remote_prefix}.${case} COMMAND bash ${remote_script} ${case})
  set_tests_properties(${remote_prefix}.${case} PROPERTIES
    LABELS ${remote_labels} TIMEOUT 180 SKIP_RETURN_CODE 77 ENVIRONMENT "${remote_env}")
endforeach()
