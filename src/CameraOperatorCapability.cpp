// The capability records that the platform asks for and hands back.
#include <string>

#include "Allocation.h"
#include "BoundedCopy.h"
#include "CameraOperator.h"
#include "Log.h"

namespace {

constexpr std::size_t kIdSize = 64;
constexpr int kReleaseAll = 1;

// What the platform is told when it has no usable camera.
constexpr std::uint32_t kCameraDriverError = 7;
constexpr int kNoCameraCode = 440;

template <typename T>
T* AllocateZeroed(std::size_t count) {
  return static_cast<T*>(AllocatePlatformBlock(count * sizeof(T)));
}

template <typename T>
void FreeAndClear(T*& block) {
  FreePlatformBlock(block);
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
    // The one block whose absence is not reported as such.
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

// Builds one camera's record. What a failure leaves unfinished is released with the record.
int MakeRecord(unsigned int index, const std::vector<unsigned int>& fpsList,
               const std::vector<tagSIZE>& sizes, NUVEQCameraCapabilities*& record) {
  // Stored even when it is null, so that the clean-up never meets what the host's pointer held before.
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
  // Before its lists are made, so that a failure releases those with the record.
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
    const std::string content = std::to_string(kNoCameraCode);
    NUVEQServiceAction action{kCameraDriverError, content.c_str(),
                              static_cast<std::uint32_t>(content.size())};
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
    // A camera that cannot be read still gets its record, which is then released with the rest.
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
  FreePlatformBlock(capabilities);
}
