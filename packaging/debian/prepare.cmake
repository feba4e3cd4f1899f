# Run by CPack over the files of the Debian package: puts them as Debian's policy wants them.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)

# Debian's zsh looks for the completions of packages elsewhere.
file(MAKE_DIRECTORY ${share}/zsh/vendor-completions)
file(RENAME ${share}/zsh/site-functions/_orvelle ${share}/zsh/vendor-completions/_orvelle)
file(REMOVE_RECURSE ${share}/zsh/site-functions)

file(WRITE ${share}/lintian/overrides/orvelle
"# No user calls these.
orvelle: no-manual-page [usr/libexec/*]
")

execute_process(COMMAND date --utc --rfc-email --date ${CPACK_ORVELLE_RELEASE_DATE}
  OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${share}/doc/orvelle/changelog
"orvelle (${CPACK_PACKAGE_VERSION}) stable; urgency=medium

  * New version.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
execute_process(COMMAND gzip --best --no-name
  ${share}/doc/orvelle/changelog ${share}/man/man1/orvelle.1
  COMMAND_ERROR_IS_FATAL ANY)
