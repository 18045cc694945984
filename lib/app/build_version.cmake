# cmake -DSOURCE_DIR=... -DOUTPUT=... -P build_version.cmake
# Writes the revision and the time of this build as a header. It runs in every build, and leaves the
# header alone while the revision stays the same: nothing is then compiled or linked anew.
set(revision 0000000000000000)
set(branch unknown)

# Only a repository of our own: sources unpacked inside another one must not bear its revision.
find_program(GIT git)
if(GIT AND EXISTS ${SOURCE_DIR}/.git)
  execute_process(COMMAND ${GIT} -C ${SOURCE_DIR} rev-parse HEAD
    OUTPUT_VARIABLE head RESULT_VARIABLE failed ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT failed)
    string(SUBSTRING ${head} 0 16 revision)
  endif()
  # Empty for a detached head.
  execute_process(COMMAND ${GIT} -C ${SOURCE_DIR} symbolic-ref --short -q HEAD
    OUTPUT_VARIABLE name RESULT_VARIABLE failed ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT failed)
    set(branch ${name})
  endif()
endif()

set(identifier_line "#define CORVANTH_BUILD_IDENTIFIER \"${revision}@${branch}\"\n")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} present)
  string(FIND "${present}" "${identifier_line}" position)
  if(position EQUAL 0)
    return()
  endif()
endif()

string(TIMESTAMP build_time "%y%m%d:%H%M%S" UTC)
file(WRITE ${OUTPUT} "${identifier_line}#define CORVANTH_BUILD_TIME \"${build_time}\"\n")
