// Capability records: GetCapability and ReleaseCapability.
#include <string>
#include <string_view>

#include "Allocation.h"
#include "BoundedCopy.h"
#include "CameraOperator.h"
#include "Log.h"

namespace {

constexpr std::size_t kIdSize = 64;
constexpr int kReleaseAll = 1;  // ignored by FreeCameraCapabilities

template <typename T>
T* AllocateZeroed(std::size_t count) {
  return static_cast<T*>(platform::AllocateHostBlock(count * sizeof(T)));
}

template <typename T>
void FreeAndClear(T*& block) {
  platform::FreeHostBlock(block);
  block = nullptr;
}

int FillId(NUVEQCameraCapabilities& record, unsigned int index) {
  const std::string text = std::to_string(index);
  record.id = AllocateZeroed<char>(kIdSize);
  if (record.id == nullptr || !BoundedCopy(record.id, kIdSize, text.data(), text.size())) {
    return NUVEQ_CAMERA_NO_MEMORY;
  }
  record.idLen = static_cast<std::uint32_t>(text.size());
  return NUVEQ_CAMERA_OK;
}

int FillFpsRanges(NUVEQCameraAbility& ability, const std::vector<unsigned int>& fpsList) {
  if (fpsList.empty()) {
    return NUVEQ_CAMERA_OK;
  }
  ability.fpsRangeNum = static_cast<std::uint32_t>(fpsList.size());
  ability.fpsRanges = AllocateZeroed<NUVEQFpsRange>(fpsList.size());
  if (ability.fpsRanges == nullptr) {
    // The only failed allocation that is not reported as NUVEQ_CAMERA_NO_MEMORY.
    return NUVEQ_CAMERA_NOT_USABLE;
  }
  for (std::size_t i = 0; i < fpsList.size(); ++i) {
    ability.fpsRanges[i] = {fpsList[i], fpsList[i]};
  }
  return NUVEQ_CAMERA_OK;
}

int FillResolutions(NUVEQCameraAbility& ability, const std::vector<tagSIZE>& sizes) {
  if (sizes.empty()) {
    return NUVEQ_CAMERA_OK;
  }
  ability.resolutionNum = static_cast<std::uint32_t>(sizes.size());
  ability.resolutions = AllocateZeroed<NUVEQResolution>(sizes.size());
  if (ability.resolutions == nullptr) {
    return NUVEQ_CAMERA_NO_MEMORY;
  }
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    ability.resolutions[i] = {sizes[i].cx, sizes[i].cy};
  }
  return NUVEQ_CAMERA_OK;
}

// Builds one camera's record. On failure the record is incomplete; the caller releases it.
int MakeRecord(unsigned int index, const std::vector<unsigned int>& fpsList,
               const std::vector<tagSIZE>& sizes, NUVEQCameraCapabilities*& record) {
  // Stored even if it is null, so that the cleanup never frees a pointer of the host's.
  record = AllocateZeroed<NUVEQCameraCapabilities>(1);
  if (record == nullptr) {
    return NUVEQ_CAMERA_NO_MEMORY;
  }
  if (const int result = FillId(*record, index); result != NUVEQ_CAMERA_OK) {
    return result;
  }
  record->abilities = AllocateZeroed<NUVEQCameraAbility>(1);
  if (record->abilities == nullptr) {
    return NUVEQ_CAMERA_NO_MEMORY;
  }
  // Set before the lists are allocated, so that they are released with the record after a failure.
  record->abilityNum = 1;
  if (const int result = FillFpsRanges(*record->abilities, fpsList); result != NUVEQ_CAMERA_OK) {
    return result;
  }
  if (const int result = FillResolutions(*record->abilities, sizes); result != NUVEQ_CAMERA_OK) {
    return result;
  }
  record->abilities->abilityFlag = 1;
  return NUVEQ_CAMERA_OK;
}

}  // namespace

int CameraOperator::GetCameraCapabilityInner(NUVEQCameraCapabilities** allAbilities,
                                             unsigned int* cameraNum) {
  if (cameraNum == nullptr || allAbilities == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 968, L"input parameter error cameraNum or allAbilities null");
    return NUVEQ_CAMERA_INVALID_ARGUMENT;
  }
  const unsigned int count = CameraCount();
  if (count == 0) {
    constexpr std::string_view kContent = NUVEQ_SERVICE_ACTION_CONTENT_NO_CAMERA;
    NUVEQServiceAction action{NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR, kContent.data(),
                              static_cast<std::uint32_t>(kContent.size())};
    UpdateServiceActionToNuveq(nullptr, 1, action);
    OPERATOR_LOG(ERROR_LOG_LEVEL, 981, L"Can not find PC Camera");
    return NUVEQ_CAMERA_NOT_USABLE;
  }
  *cameraNum = count;
  int result = NUVEQ_CAMERA_OK;
  for (unsigned int i = 0; i < count; ++i) {
    std::vector<tagSIZE> sizes;
    std::vector<GUID> subTypes;
    std::vector<unsigned int> fpsList;
    // A camera that cannot be read still gets a record, which is released below.
    if (!GetCameraCapabilities(i, sizes, subTypes, fpsList)) {
      result = NUVEQ_CAMERA_NOT_USABLE;
    }
    if (const int made = MakeRecord(i, fpsList, sizes, allAbilities[i]); made != NUVEQ_CAMERA_OK) {
      result = made;
      break;
    }
  }
  if (result != NUVEQ_CAMERA_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 1036, L"fail to get allAbilities ", result);
    if (*allAbilities != nullptr) {
      FreeCameraCapabilities(kReleaseAll, *allAbilities, *cameraNum);
    }
  }
  return result;
}

void CameraOperator::FreeCameraCapabilities(int /*ignored*/, NUVEQCameraCapabilities* capabilities,
                                            unsigned int count) {
  if (capabilities == nullptr) {
    return;
  }
  for (unsigned int i = 0; i < count; ++i) {
    NUVEQCameraCapabilities& record = capabilities[i];
    FreeAndClear(record.id);
    if (record.abilities == nullptr) {
      continue;
    }
    for (std::uint32_t k = 0; k < record.abilityNum; ++k) {
      FreeAndClear(record.abilities[k].fpsRanges);
      FreeAndClear(record.abilities[k].resolutions);
    }
    FreeAndClear(record.abilities);
  }
  platform::FreeHostBlock(capabilities);
}
