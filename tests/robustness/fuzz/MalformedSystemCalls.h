// A kernel whose answers a fuzzer's bytes choose: the system calls behind the Linux platform's cameras. A
// byte of zero, and every byte past the end, makes a call behave; others make it fail or lie. Lies stop where
// a kernel's would be the end anyway: memory that it says is mapped is there.
#pragma once

#include <linux/videodev2.h>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "ByteReader.h"
#include "v4l2/SystemCalls.h"

class MalformedSystemCalls : public v4l2::SystemCalls {
 public:
  // Trees of devices begin in the folder's "sys" and "dev".
  MalformedSystemCalls(ByteReader& reader, std::filesystem::path root)
      : m_reader(reader), m_root(std::move(root)) {}

  int Open(const char* path, int flags) override;
  int Close(int descriptor) override;
  int Ioctl(int descriptor, unsigned long request, void* argument) override;
  void* Map(std::size_t size, int descriptor, off_t offset) override;
  int Unmap(void* address, std::size_t size) override;
  int Poll(pollfd* entries, nfds_t count, int timeoutMs) override;
  std::filesystem::path SysfsRoot() const override { return m_root / "sys"; }
  std::filesystem::path DevRoot() const override { return m_root / "dev"; }

  std::size_t OpenDescriptors() const { return m_open.size(); }
  std::size_t Mappings() const { return m_mappings.size(); }

 private:
  struct Mapping {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t size = 0;
  };

  int Answer(unsigned long request, void* argument, bool lies);
  int EnumFormat(v4l2_fmtdesc& entry, bool lies);
  int EnumSize(v4l2_frmsizeenum& entry, bool lies);
  int EnumInterval(v4l2_frmivalenum& entry, bool lies);
  void DescribeFormat(v4l2_format& format, bool lies);
  void DescribeRate(v4l2_streamparm& rate, bool lies);
  int RequestBuffers(v4l2_requestbuffers& request, bool lies);
  int QueryBuffer(v4l2_buffer& buffer, bool lies);
  int Dequeue(v4l2_buffer& buffer, bool lies);
  std::uint32_t Side();
  std::uint32_t FourCc();
  v4l2_fract Fraction();

  ByteReader& m_reader;
  std::filesystem::path m_root;
  // The streaming thread and the fuzzer's take turns with a camera; this holds should they not.
  std::mutex m_mutex;
  std::set<int> m_open;
  std::map<void*, Mapping> m_mappings;
  std::vector<void*> m_byIndex;  // mappings in their order
  std::vector<std::uint32_t> m_queue;
  v4l2_pix_format m_format{};
  std::uint32_t m_imageSize = 0;
  std::uint32_t m_sequence = 0;
  int m_nextDescriptor = 1'000'000;
};
