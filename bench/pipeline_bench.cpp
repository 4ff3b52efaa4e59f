// What the library costs from the graph's call of BufferCB to the platform's data callback, over the real
// encoder, and where that goes.
//
//   build/native/bin/pipeline_bench --benchmark_counters_tabular=true
//   build/native/bin/pipeline_bench --benchmark_filter=Paced/1280x720
//   build/native/bin/pipeline_bench --help
//
// Where other programs are busy, their time slices are in every p99. With the right to do so, put the
// benchmark before them:
//
//   chrt --fifo 10 build/native/bin/pipeline_bench --benchmark_filter=Paced
//
//   Paced       a camera at its frame rate; the line's time is the mean latency of a frame
//   Unpaced     a camera that is always ready; the line's time is that of a frame at full throughput
//   Open        the line's time is from the open request to the first packet, of a camera without delay
//   HandOver    FrameBufQueue, a frame from one thread to another
//   PoolCopy    the copy into the pool, and memcpy of the same bytes
//
// Counters of sessions. Names end in their units: ms, us (microseconds), pct (percent).
//
//   latency_*   from entering BufferCB to entering the data callback
//   encode_*    in the encoder library
//   convert_*   the part of it that makes planes for the encoder
//   buffercb_*  how long BufferCB keeps the graph's thread
//   copy_*      memcpy of a frame on the graph's thread, timed between the session's frames
//   added_*     latency less encode and one copy: what the library itself adds
//   added_*_pct_of_30fps   the same as a part of the 33.3 ms that a frame has at 30 frames per second
//   other_*_pct            all of the latency that is not encoding proper: conversion and copy are other, too
//   timer_late_*           how late this machine woke the camera's thread: beside the library in every p99
//   encoder_idle_pct       of the time between two packets, what the encoder library did not work in
//   product_slice_threads  how many the product uses for this size on this machine
//
// The camera is the benchmark's own thread over the scripted platform of the tests. Its BufferCB is called
// directly: neither a device nor a thread of a platform's is between the watch and the library, and the
// process has no other threads than the library and the encoder start. The encoder library is the product's,
// with a watch around it (TimedEncoder.h), which also sets the slice threads; the product decides these by
// itself. The first frames of a session are left out: a key frame, memory that is touched for the first time.
//
// A p99 is that of 300 frames where the rate is 30 frames per second; of the 40 frames at 10 it is the
// greatest.
//
// That the library was built as DEBUG, which Debian's says of itself, is about the benchmark library:
// sessions are timed without it.
//
// Absolute times are this machine's at this moment; compare lines of one run. Answers 1 when a benchmark
// could not be run.
#include "Failures.h"
#include "PipelineBenchmarks.h"

int main(int argc, char** argv) {
  RegisterSessionBenchmarks();
  RegisterPartBenchmarks();
  return RunBenchmarks(argc, argv);
}
