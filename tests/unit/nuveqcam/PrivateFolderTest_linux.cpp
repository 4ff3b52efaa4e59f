#include "view/PrivateFolder.h"

#include <gtest/gtest.h>

#include <fstream>

namespace nuveqcam {
namespace {

TEST(PrivateFolder, IsAccessibleToItsOwnerOnly) {
  const PrivateFolder folder;
  EXPECT_EQ(std::filesystem::status(folder.Path()).permissions(), std::filesystem::perms::owner_all);
}

TEST(PrivateFolder, IsRemovedWithItsContent) {
  std::filesystem::path path;
  {
    const PrivateFolder folder;
    path = folder.Path();
    std::ofstream(path / "a") << "content";
    EXPECT_TRUE(std::filesystem::exists(path / "a"));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace nuveqcam
