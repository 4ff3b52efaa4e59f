#include <gtest/gtest.h>

#include <exception>
#include <iostream>

#include "CameraFiles.h"

int main(int argc, char** argv) {
  try {
    ::testing::InitGoogleTest(&argc, argv);
    std::cout << "topology: " << guest::Environment("NUVEQ_KERNEL_TOPOLOGY") << "\n";
    const int result = RUN_ALL_TESTS();
    if (::testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
      std::cerr << "the filter matches no test\n";
      return 1;
    }
    return result;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 2;
  }
}
