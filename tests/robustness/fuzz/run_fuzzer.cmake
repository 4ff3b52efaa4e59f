# Runs a fuzz program over its seeds and then for some seconds more, always the same way.
#
# PROGRAM  the fuzz program
# SEEDS    folder of its seeds, which stays as it is
# WORK     folder for what is found: the grown corpus, and inputs that break a rule
# SECONDS  how long
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/corpus ${WORK}/found)
# Who allocated what matters when an input is run again, not here, where it takes a quarter of the time.
set(ENV{ASAN_OPTIONS} "$ENV{ASAN_OPTIONS}:malloc_context_size=3:quarantine_size_mb=32")
execute_process(
    COMMAND ${PROGRAM} -seed=1 -max_total_time=${SECONDS} -timeout=25 -rss_limit_mb=2048 -print_final_stats=1
            -artifact_prefix=${WORK}/found/ ${WORK}/corpus ${SEEDS}
    RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "An input broke a rule; see above. It is in ${WORK}/found, and to be run again with: "
                      "${PROGRAM} FILE")
endif()
