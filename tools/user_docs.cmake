# Manual pages (help2man over --help-all and --version) and bash and zsh
# completion (--completion SHELL) for both programs, and where they install.
find_program(HELP2MAN help2man REQUIRED)
find_program(GZIP gzip REQUIRED)
set(CAMRELAY_DOCS_DIR ${CMAKE_CURRENT_BINARY_DIR}/docs)

set(camrelay_summary "drive a video alarm communicator over TCP or UDP")
set(camrelay-unit_summary "a simulated video alarm communicator, for tests and for writing hosts")
# camrelay's commands have help of their own: the page holds all of it.
set(camrelay_help --help-all)
set(camrelay-unit_help --help)

set(zsh_completions "")
foreach(target camrelay-cli camrelay-unit)
  get_target_property(program ${target} OUTPUT_NAME)
  if(NOT program)
    set(program ${target})
  endif()
  set(man ${CAMRELAY_DOCS_DIR}/${program}.1)
  set(bash ${CAMRELAY_DOCS_DIR}/bash/${program})
  string(REPLACE "-" "_" zsh_function ${program})
  set(zsh ${CAMRELAY_DOCS_DIR}/zsh/_${zsh_function})
  add_custom_command(OUTPUT ${man} ${man}.gz
    COMMAND ${HELP2MAN} --no-info --help-option=${${program}_help} --version-option=--version
            --name=${${program}_summary} --output=${man}
            "sh ${CMAKE_CURRENT_SOURCE_DIR}/cli_docs/help2man-input $<TARGET_FILE:${target}>"
    # -n: no time stamp, so that the same program gives the same file.
    COMMAND ${GZIP} -9 -n -c ${man} > ${man}.gz
    DEPENDS ${target} ${CMAKE_CURRENT_SOURCE_DIR}/cli_docs/help2man-input
    COMMENT "Writing the manual page ${program}(1)" VERBATIM)
  add_custom_command(OUTPUT ${bash} ${zsh}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CAMRELAY_DOCS_DIR}/bash ${CAMRELAY_DOCS_DIR}/zsh
    COMMAND $<TARGET_FILE:${target}> --completion bash > ${bash}
    COMMAND $<TARGET_FILE:${target}> --completion zsh > ${zsh}
    DEPENDS ${target}
    COMMENT "Writing the shell completion of ${program}" VERBATIM)
  add_custom_target(${program}-docs ALL DEPENDS ${man}.gz ${bash} ${zsh})
  install(FILES ${man}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${bash} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  list(APPEND zsh_completions ${zsh})
endforeach()

# zsh reads packaged completion from vendor-completions, and completion
# installed by hand (/usr/local, /opt/...) from site-functions. The prefix is
# only known when installing.
install(CODE "
  set(zsh_dir share/zsh/site-functions)
  if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    set(zsh_dir share/zsh/vendor-completions)
  endif()
  file(INSTALL ${zsh_completions} DESTINATION \"\${CMAKE_INSTALL_PREFIX}/\${zsh_dir}\")
")
