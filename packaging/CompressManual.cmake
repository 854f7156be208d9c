# Run by cpack before packages are built from the installed files.
file(GLOB_RECURSE pages LIST_DIRECTORIES FALSE "${CPACK_TEMPORARY_DIRECTORY}/*")
list(FILTER pages INCLUDE REGEX "/share/man/.*[1-9]$")
foreach(page ${pages})
  execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
