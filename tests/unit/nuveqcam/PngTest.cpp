#include "picture/Png.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory_resource>
#include <new>

#include "cli/Failure.h"

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_NO_STDIO
#define STBI_ONLY_PNG
#include <stb_image.h>

namespace nuveqcam {
namespace {

Picture MakePicture(std::uint32_t width, std::uint32_t height) {
  Picture picture{width, height, {}};
  for (std::size_t i = 0; i < std::size_t{3} * width * height; ++i) {
    picture.rgb.push_back(static_cast<std::uint8_t>(i * i / 7));
  }
  return picture;
}

// Empty if the file is invalid.
Picture ReadPng(const std::vector<std::uint8_t>& file) {
  int width = 0;
  int height = 0;
  int channels = 0;
  const std::unique_ptr<stbi_uc, void (*)(void*)> pixels(
      stbi_load_from_memory(file.data(), static_cast<int>(file.size()), &width, &height, &channels, 0),
      stbi_image_free);
  if (!pixels || channels != 3) {
    return {};
  }
  Picture picture{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), {}};
  picture.rgb.assign(pixels.get(), pixels.get() + std::size_t{3} * picture.width * picture.height);
  return picture;
}

TEST(Png, HasEveryPixel) {
  for (const auto& [width, height] : {std::pair{1U, 1U}, {37U, 19U}, {640U, 2U}, {3U, 481U}}) {
    const Picture picture = MakePicture(width, height);
    const Picture read = ReadPng(EncodePng(picture));
    EXPECT_EQ(read.width, width);
    EXPECT_EQ(read.height, height);
    EXPECT_EQ(read.rgb, picture.rgb) << width << "x" << height;
  }
}

TEST(Png, UniformPictureIsCompressed) {
  const Picture picture{640, 480, std::vector<std::uint8_t>(std::size_t{3} * 640 * 480, 0x55)};
  const std::vector<std::uint8_t> file = EncodePng(picture);
  EXPECT_LT(file.size(), picture.rgb.size() / 50);
  EXPECT_EQ(ReadPng(file).rgb, picture.rgb);
}

TEST(Png, OfAnEmptyOrTooLargePictureFails) {
  for (const auto& [width, height] :
       {std::pair{0U, 0U}, {0U, 1U}, {1U, 0U}, {65535U, 65535U}, {0xFFFFFFFF, 0xFFFFFFFF}}) {
    try {
      EncodePng({width, height, {}});
      FAIL() << "no failure for " << width << "x" << height;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.Code(), ExitCode::kUnexpected);
      EXPECT_THAT(failure.what(), testing::StartsWith("cannot "));
    }
  }
}

class FailingMemory : public std::pmr::memory_resource {
 public:
  explicit FailingMemory(int failingAllocation) : m_failingAllocation(failingAllocation) {}

  int allocations = 0;
  int liveBlocks = 0;

 private:
  void* do_allocate(std::size_t size, std::size_t alignment) override {
    if (++allocations == m_failingAllocation) {
      throw std::bad_alloc();
    }
    ++liveBlocks;
    return std::pmr::new_delete_resource()->allocate(size, alignment);
  }
  void do_deallocate(void* block, std::size_t size, std::size_t alignment) override {
    --liveBlocks;
    std::pmr::new_delete_resource()->deallocate(block, size, alignment);
  }
  bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }

  const int m_failingAllocation;
};

TEST(Png, FailedAllocationThrowsAndLeaksNothing) {
  const Picture picture = MakePicture(64, 64);
  bool hasFailed = true;
  int failures = 0;
  for (int number = 1; hasFailed; ++number) {
    FailingMemory memory(number);
    std::pmr::memory_resource* const earlier = std::pmr::set_default_resource(&memory);
    hasFailed = false;
    try {
      EncodePng(picture);
    } catch (const std::bad_alloc&) {
      hasFailed = true;
      ++failures;
    }
    std::pmr::set_default_resource(earlier);
    EXPECT_EQ(memory.liveBlocks, 0) << number;
    EXPECT_EQ(hasFailed, memory.allocations == number);
  }
  EXPECT_GT(failures, 2);
}

}  // namespace
}  // namespace nuveqcam
