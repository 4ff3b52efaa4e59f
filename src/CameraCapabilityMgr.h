// Capability table of the camera that was queried last. An open request chooses its format from it.
#pragma once

#include <cstdint>
#include <vector>

#include "DirectShow.h"

// Delivery format of a size. The values are those of ColorSpace for the resulting frames.
enum class CameraFormatCode : std::uint32_t {
  kUncompressed = 3,  // any subtype except MJPG; opened as YUY2
  kMjpg = 4,          // decoded to ARGB32 by the graph
};

struct CapabilityEntry {
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // pixels
  std::uint32_t fps = 0;     // whole frames per second
  CameraFormatCode format = CameraFormatCode::kUncompressed;

  bool operator==(const CapabilityEntry&) const = default;
};

// Not thread-safe: hosts do not overlap a capability query with an open request.
class CameraCapabilityMgr {
 public:
  CameraCapabilityMgr() = default;
  CameraCapabilityMgr(const CameraCapabilityMgr&) = delete;
  CameraCapabilityMgr& operator=(const CameraCapabilityMgr&) = delete;
  virtual ~CameraCapabilityMgr() = default;

  // The process-wide table.
  static CameraCapabilityMgr& GetInstance();

  // Appends an entry. Logs and ignores a duplicate.
  void Add(const unsigned int width, const unsigned int height, const unsigned int fps, const GUID& subType);
  void Clear();

  // Returns the entry of that size with the highest rate, at equal rates an uncompressed one. Returns the
  // default entry if no entry has the size.
  CapabilityEntry FindCapability(unsigned int width, unsigned int height) const;
  CameraFormatCode GetFormat(unsigned int width, unsigned int height) const;
  GUID GetSubType(unsigned int width, unsigned int height) const;

 private:
  friend struct CameraCapabilityMgrTestAccess;

  std::vector<CapabilityEntry> m_entries;  // in order of insertion
};
