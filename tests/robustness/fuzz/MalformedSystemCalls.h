// System calls of the Linux platform whose results fuzzer input chooses. Each call reads a control byte: 0,
// as past the end of the input, means a well-formed result, other values an error or a malformed result.
// Mapped memory always exists: the library cannot defend itself against a kernel that returns an invalid
// mapping.
//
// Not based on FakeSystemCalls, which replaces formats that it does not offer and rejects calls that do not
// fit its state, so that input after a malformed result would be without effect. Its buffers are whole pages,
// in which AddressSanitizer does not detect overruns; the mappings here are heap blocks of the exact size.
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

namespace fuzz {

class MalformedSystemCalls : public v4l2::SystemCalls {
 public:
  // root: folder that contains "sys" and "dev".
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

  int HandleIoctl(unsigned long request, void* argument, bool isMalformed);
  int EnumFormat(v4l2_fmtdesc& entry, bool isMalformed);
  int EnumSize(v4l2_frmsizeenum& entry, bool isMalformed);
  int EnumInterval(v4l2_frmivalenum& entry, bool isMalformed);
  void DescribeFormat(v4l2_format& format, bool isMalformed);
  void DescribeRate(v4l2_streamparm& rate, bool isMalformed);
  int RequestBuffers(v4l2_requestbuffers& request, bool isMalformed);
  int QueryBuffer(v4l2_buffer& buffer, bool isMalformed);
  int Dequeue(v4l2_buffer& buffer, bool isMalformed);
  std::uint32_t Side();
  std::uint32_t FourCc();
  v4l2_fract Fraction();

  ByteReader& m_reader;
  std::filesystem::path m_root;
  std::mutex m_mutex;  // guards the members below
  std::set<int> m_open;
  std::map<void*, Mapping> m_mappings;
  std::vector<void*> m_byIndex;  // addresses of the mappings in the order of creation
  std::vector<std::uint32_t> m_queue;
  v4l2_pix_format m_format{};
  std::uint32_t m_imageSize = 0;
  std::uint32_t m_sequence = 0;
  int m_nextDescriptor = 1'000'000;
};

}  // namespace fuzz
