# Adds the settings of logrotate to a Debian package, packs the manual pages, and makes all files readable by all users, whatever the
# umask.
file(GLOB_RECURSE manuals ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*.[1-9])
if(manuals)
  execute_process(COMMAND gzip --best --no-name ${manuals} COMMAND_ERROR_IS_FATAL ANY)
endif()
if(EXISTS ${CPACK_TEMPORARY_DIRECTORY}/runtime)
  configure_file(${CPACK_HX_LOGROTATE_FILE}
    ${CPACK_TEMPORARY_DIRECTORY}/runtime/etc/logrotate.d/corvane26-setup COPYONLY)
endif()
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
