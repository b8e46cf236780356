# Manual pages and shell completions, written by the program itself from its command definitions
# after every build of it, so they always match what it accepts. A stamp stands for the pages,
# whose names follow the commands.
set(TAVRIN_MAN_DIR ${CMAKE_BINARY_DIR}/share/man/man1)
set(TAVRIN_BASH_COMPLETION ${CMAKE_BINARY_DIR}/share/bash-completion/completions/tavrin)
set(TAVRIN_ZSH_COMPLETION ${CMAKE_BINARY_DIR}/share/zsh/vendor-completions/_tavrin)
add_custom_command(
  OUTPUT ${CMAKE_BINARY_DIR}/share/docs.stamp ${TAVRIN_BASH_COMPLETION} ${TAVRIN_ZSH_COMPLETION}
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${TAVRIN_MAN_DIR}
  COMMAND $<TARGET_FILE:tavrin> __generate man ${TAVRIN_MAN_DIR}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/share/bash-completion/completions
                                             ${CMAKE_BINARY_DIR}/share/zsh/vendor-completions
  COMMAND $<TARGET_FILE:tavrin> __generate bash > ${TAVRIN_BASH_COMPLETION}
  COMMAND $<TARGET_FILE:tavrin> __generate zsh > ${TAVRIN_ZSH_COMPLETION}
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/share/docs.stamp
  DEPENDS tavrin
  COMMENT "Writing the manual pages and shell completions"
  VERBATIM)
add_custom_target(tavrin_docs ALL DEPENDS ${CMAKE_BINARY_DIR}/share/docs.stamp)
