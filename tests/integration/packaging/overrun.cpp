// Writes the given number of bytes to an array of 16 bytes.
#include <cstdio>
#include <cstdlib>

namespace {

__attribute__((noinline)) void Fill(volatile char* bytes, int count) {
  for (int i = 0; i < count; ++i) {
    bytes[i] = 'x';
  }
}

__attribute__((noinline)) char FillArray(int count) {
  volatile char bytes[16] = {};
  Fill(bytes, count);
  return bytes[0];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || FillArray(std::atoi(argv[1])) != 'x') {
    return 1;
  }
  std::puts("returned");
  return 0;
}
