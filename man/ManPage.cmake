# cmake -DSOURCE=page.scd -DOUTPUT=page.gz -DSCDOC=... -DGZIP=... -DCHANGELOG=... [-DVAR=...]
#       -P ManPage.cmake
# Fills @VAR@ into the scdoc source, turns it into roff and compresses it. The page's date is
# the newest changelog entry's, so that the same release gives the same page.
foreach(var SOURCE OUTPUT SCDOC GZIP CHANGELOG)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "ManPage.cmake: -D${var}=... is missing")
  endif()
endforeach()

file(STRINGS ${CHANGELOG} signature REGEX "^ -- .*>  " LIMIT_COUNT 1)
string(REGEX REPLACE "^ -- .*>  " "" date "${signature}")
execute_process(COMMAND date -u -d "${date}" +%s OUTPUT_VARIABLE epoch
                OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
if(failed OR NOT epoch MATCHES "^[0-9]+$")
  message(FATAL_ERROR "${CHANGELOG}: the newest entry's date '${date}' does not parse")
endif()
set(ENV{SOURCE_DATE_EPOCH} ${epoch})

file(READ ${SOURCE} text)
string(CONFIGURE "${text}" text @ONLY)
set(filled ${OUTPUT}.scd)
set(roff ${OUTPUT}.roff)
file(WRITE ${filled} "${text}")
execute_process(COMMAND ${SCDOC} INPUT_FILE ${filled} OUTPUT_FILE ${roff} ERROR_VARIABLE problem
                RESULT_VARIABLE failed)
if(failed)
  file(REMOVE ${roff})
  message(FATAL_ERROR "${SOURCE}: scdoc: ${problem}")
endif()
execute_process(COMMAND ${GZIP} -9nc ${roff} OUTPUT_FILE ${OUTPUT} RESULT_VARIABLE failed)
if(failed)
  file(REMOVE ${OUTPUT})
  message(FATAL_ERROR "${OUTPUT}: gzip failed")
endif()
file(REMOVE ${filled} ${roff})
