/* A host in C that links the library: asks for the table and prints the two answers. */
#include <stdio.h>
#include <string.h>

#include <NUVEQCameraHandler.h>

int main(void) {
  NUVEQCameraHandler table;
  memset(&table, 0, sizeof(table));
  const int32_t answer = NUVEQGetCameraHandler(&table);
  const int32_t answerToNull = NUVEQGetCameraHandler(NULL);
  printf("table %d, null %d\n", (int)answer, (int)answerToNull);
  /* A slot is a function that can be called, not only a pointer that is set. */
  return table.GetCapability == NULL || table.GetCapability(NULL, NULL) != NUVEQ_CAMERA_INVALID_ARGUMENT;
}
