#include "CameraCapabilityMgr.h"

#include <algorithm>

#include "Log.h"

CameraCapabilityMgr& CameraCapabilityMgr::GetInstance() {
  static CameraCapabilityMgr instance;
  return instance;
}

void CameraCapabilityMgr::Add(const unsigned int width, const unsigned int height, const unsigned int fps,
                              const GUID& subType) {
  const CameraFormatCode format =
      IsEqualGUID(subType, MEDIASUBTYPE_MJPG) ? CameraFormatCode::kMjpg : CameraFormatCode::kUncompressed;
  const CapabilityEntry entry{width, height, fps, format};
  if (std::find(m_entries.begin(), m_entries.end(), entry) != m_entries.end()) {
    CAMERA_LOG(ERROR_LOG_LEVEL, "CameraCapabilityMgr.cpp", 27,
               L"Add CameraCapabilitiy, Capabilitiy already exist.", L"(CameraCapabilityMgr::Add)");
    return;
  }
  m_entries.push_back(entry);
}

void CameraCapabilityMgr::Clear() { m_entries.clear(); }

CapabilityEntry CameraCapabilityMgr::FindCapability(unsigned int width, unsigned int height) const {
  CapabilityEntry best;
  for (const CapabilityEntry& entry : m_entries) {
    if (entry.width != width || entry.height != height) {
      continue;
    }
    // At equal rates an uncompressed format avoids decoding.
    if (entry.fps == best.fps && entry.format == CameraFormatCode::kUncompressed) {
      best = entry;
    }
    if (entry.fps > best.fps) {
      best = entry;
    }
  }
  return best;
}

CameraFormatCode CameraCapabilityMgr::GetFormat(unsigned int width, unsigned int height) const {
  return FindCapability(width, height).format;
}

GUID CameraCapabilityMgr::GetSubType(unsigned int width, unsigned int height) const {
  return GetFormat(width, height) == CameraFormatCode::kMjpg ? MEDIASUBTYPE_MJPG : MEDIASUBTYPE_YUY2;
}
