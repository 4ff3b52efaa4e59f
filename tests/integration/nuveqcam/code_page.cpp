// Says with which code page its console shows text: chcp knows only that of the keys.
#include <cstdio>

#include <windows.h>

int main() {
  std::printf("code page: %u.\n", GetConsoleOutputCP());
  return 0;
}
