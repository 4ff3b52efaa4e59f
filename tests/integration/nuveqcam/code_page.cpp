// Prints the console's output code page. (chcp prints the input code page.)
#include <cstdio>

#include <windows.h>

int main() {
  std::printf("code page: %u.\n", GetConsoleOutputCP());
  return 0;
}
