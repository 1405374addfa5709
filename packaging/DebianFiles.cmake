# What the files of a Debian package have in common: manual pages are packed, and everything is for
# everybody, whatever the umask of who makes the package.
file(GLOB_RECURSE manuals ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*.[1-9])
if(manuals)
  execute_process(COMMAND gzip --best --no-name ${manuals} COMMAND_ERROR_IS_FATAL ANY)
endif()
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
