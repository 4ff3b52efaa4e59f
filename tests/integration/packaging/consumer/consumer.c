/* A host in C that links the library. Prints the results of NUVEQGetCameraHandler for a table and for NULL.
 */
#include <stdio.h>
#include <string.h>

#include <NUVEQCameraHandler.h>

int main(void) {
  NUVEQCameraHandler table;
  memset(&table, 0, sizeof(table));
  const int32_t result = NUVEQGetCameraHandler(&table);
  const int32_t resultForNull = NUVEQGetCameraHandler(NULL);
  printf("table %d, null %d\n", (int)result, (int)resultForNull);
  /* The table's functions can be called. */
  return table.GetCapability == NULL || table.GetCapability(NULL, NULL) != NUVEQ_CAMERA_INVALID_ARGUMENT;
}
