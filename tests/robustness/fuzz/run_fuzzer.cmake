# Runs a fuzz target on its seeds and then fuzzes with a fixed random seed.
#
# PROGRAM  the fuzz target
# SEEDS    folder with its seeds; not modified
# WORK     folder for the results: the grown corpus and failing inputs
# SECONDS  duration
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/corpus ${WORK}/found)
# Full allocation stacks take a quarter of the run time and matter only when an input is reproduced.
set(ENV{ASAN_OPTIONS} "$ENV{ASAN_OPTIONS}:malloc_context_size=3:quarantine_size_mb=32")
execute_process(
    COMMAND ${PROGRAM} -seed=1 -max_total_time=${SECONDS} -timeout=25 -rss_limit_mb=2048 -print_final_stats=1
            -artifact_prefix=${WORK}/found/ ${WORK}/corpus ${SEEDS}
    RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "An input failed; see above. It is in ${WORK}/found; to reproduce: "
                      "${PROGRAM} FILE")
endif()
