# Packs the manual pages of a Debian package and makes all files readable by all users, whatever the
# umask.
file(GLOB_RECURSE manuals ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*.[1-9])
if(manuals)
  execute_process(COMMAND gzip --best --no-name ${manuals} COMMAND_ERROR_IS_FATAL ANY)
endif()
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
