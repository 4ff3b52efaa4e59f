#include "picture/Png.h"

#include <cstddef>
#include <cstring>
#include <memory_resource>
#include <new>
#include <string>

#include "cli/Failure.h"

namespace nuveqcam {
namespace {

// The memory of stb_image_write during one call. The library itself would write to a null pointer after some
// failed allocations and leak after others; this memory throws std::bad_alloc and is freed as a whole.
class PngMemory {
 public:
  PngMemory() { current = &m_blocks; }
  PngMemory(const PngMemory&) = delete;
  PngMemory& operator=(const PngMemory&) = delete;
  ~PngMemory() { current = nullptr; }

  static void* Allocate(std::size_t size) { return current->allocate(size); }

  static void* Reallocate(const void* block, std::size_t size, std::size_t newSize) {
    void* const newBlock = Allocate(newSize);
    if (block != nullptr) {
      std::memcpy(newBlock, block, size);
    }
    return newBlock;
  }

  // The destructor frees the block.
  static void Free(void* /*block*/) {}

 private:
  static thread_local std::pmr::memory_resource* current;

  std::pmr::monotonic_buffer_resource m_blocks;
};

thread_local std::pmr::memory_resource* PngMemory::current = nullptr;

}  // namespace
}  // namespace nuveqcam

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#define STBIW_MALLOC nuveqcam::PngMemory::Allocate
#define STBIW_REALLOC_SIZED nuveqcam::PngMemory::Reallocate
#define STBIW_FREE nuveqcam::PngMemory::Free
#include <stb_image_write.h>

namespace nuveqcam {
namespace {

constexpr int kBytesPerPixel = 3;
// The library computes sizes as int; its largest buffer has up to three times the size of the picture.
constexpr std::uint64_t kMaxPictureSize = std::uint64_t{512} << 20U;

void Store(void* file, void* bytes, int size) {
  const auto* const begin = static_cast<const std::uint8_t*>(bytes);
  static_cast<std::vector<std::uint8_t>*>(file)->assign(begin, begin + size);
}

}  // namespace

std::vector<std::uint8_t> EncodePng(const Picture& picture) {
  const std::uint64_t pixels = std::uint64_t{picture.width} * picture.height;
  if (pixels == 0 || pixels > kMaxPictureSize / kBytesPerPixel ||
      picture.rgb.size() != pixels * kBytesPerPixel) {
    throw Failure(ExitCode::kUnexpected, "cannot write a picture of " + std::to_string(picture.width) + "x" +
                                             std::to_string(picture.height) +
                                             " pixels as PNG; use 'nuveqcam record'");
  }
  PngMemory memory;
  std::vector<std::uint8_t> file;
  const int width = static_cast<int>(picture.width);
  if (stbi_write_png_to_func(Store, &file, width, static_cast<int>(picture.height), kBytesPerPixel,
                             picture.rgb.data(), width * kBytesPerPixel) == 0) {
    throw std::bad_alloc();
  }
  return file;
}

}  // namespace nuveqcam
