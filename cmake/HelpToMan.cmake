# Makes one manual page, run by the build (cmake -P) so that the page follows the program:
#
#   PROGRAM given:  help2man turns the program's --help and --version into roff, with INCLUDE
#                   (a help2man include file) adding NAME, FILES, EXAMPLES and SEE ALSO. The
#                   "Exit status:" block of --help, which help2man takes for a sub-section,
#                   becomes the EXIT STATUS section.
#   PAGE given:     a page written by hand, taken as it is.
#
# Writes OUTPUT (roff, for `man -l`) and OUTPUT.gz (gzip -9n, the form Debian installs).
# Inputs: HELP2MAN, PROGRAM, INCLUDE, SOURCE (the footer's "tyDBCreate 1.0.0") | PAGE; OUTPUT.
get_filename_component(folder ${OUTPUT} DIRECTORY)
file(MAKE_DIRECTORY ${folder})
if(DEFINED PROGRAM)
  execute_process(
    COMMAND ${HELP2MAN} --no-info --section=1 "--source=${SOURCE}" "--manual=User Commands"
            "--include=${INCLUDE}" --output=${OUTPUT}.tmp ${PROGRAM}
    RESULT_VARIABLE status ERROR_VARIABLE errors)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "help2man could not make the page of ${PROGRAM}: ${errors}")
  endif()
  file(READ ${OUTPUT}.tmp page)
  file(REMOVE ${OUTPUT}.tmp)
  string(REPLACE ".SS \"Exit status:\"" ".SH \"EXIT STATUS\"" page "${page}")
  string(REPLACE ".SS \"Positionals:\"" ".SS \"Arguments:\"" page "${page}")
else()
  file(READ ${PAGE} page)
endif()
file(WRITE ${OUTPUT} "${page}")
execute_process(COMMAND gzip -9n -c ${OUTPUT} OUTPUT_FILE ${OUTPUT}.gz RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "gzip could not compress ${OUTPUT}")
endif()
