// What the camera queried last can deliver: the table from which an open request chooses a format.
#pragma once

#include <cstdint>
#include <vector>

#include "DirectShow.h"

// How a size is delivered. The values are the encoder library's layouts of the frames that result.
enum class CameraFormatCode : std::uint32_t {
  kUncompressed = 3,  // any subtype but MJPG; opened as YUY2
  kMjpg = 4,          // decoded to ARGB32 on its way through the graph
};

struct CapabilityEntry {
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // pixels
  std::uint32_t fps = 0;     // whole frames per second
  CameraFormatCode format = CameraFormatCode::kUncompressed;

  bool operator==(const CapabilityEntry&) const = default;
};

// Not locked: the platform does not overlap a capability query with an open request.
class CameraCapabilityMgr {
 public:
  CameraCapabilityMgr() = default;
  CameraCapabilityMgr(const CameraCapabilityMgr&) = delete;
  CameraCapabilityMgr& operator=(const CameraCapabilityMgr&) = delete;
  virtual ~CameraCapabilityMgr() = default;

  // The one table of the process.
  static CameraCapabilityMgr& GetInstance();

  // Appends an entry, unless the table has an equal one, which is logged.
  void Add(const unsigned int width, const unsigned int height, const unsigned int fps, const GUID& subType);
  void Clear();

  // The entry of that size with the highest rate; of equal rates, an uncompressed one. The default entry
  // when no entry has the size.
  CapabilityEntry FindCapability(unsigned int width, unsigned int height) const;
  CameraFormatCode GetFormat(unsigned int width, unsigned int height) const;
  GUID GetSubType(unsigned int width, unsigned int height) const;

 private:
  friend struct CameraCapabilityMgrTestAccess;

  std::vector<CapabilityEntry> m_entries;  // in order of insertion
};
