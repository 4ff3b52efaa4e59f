/* A platform in C: loads the library and prints a second of the built-in camera's packets. */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "NUVEQCameraHandler.h"

static int32_t on_packet(const char* id, uint32_t id_len, const uint8_t* data, uint32_t size, int32_t one) {
  printf("camera %.*s: %u bytes, NAL unit type %d\n", (int)id_len, id, size, data[4] & 31);
  return one - 1;
}
static int32_t on_action(const char* id, uint32_t id_len, NUVEQServiceAction* action) {
  fprintf(stderr, "no usable camera (%.*s)\n", (int)action->contentLen, action->content);
  return id == NULL && id_len == 1 ? 0 : -1;
}

int main(int argc, char** argv) {
  void* library = dlopen(argc > 1 ? argv[1] : "libnuveqcamerahandler.so", RTLD_NOW);
  int32_t (*get_handler)(NUVEQCameraHandler*) = NULL;
  if (library != NULL) *(void**)&get_handler = dlsym(library, "NUVEQGetCameraHandler");
  NUVEQCameraHandler camera;
  if (get_handler == NULL || get_handler(&camera) != 0) return 1;
  NUVEQServiceListener listener = {NULL, on_action}; /* no status reports */
  camera.RegisterSendDataCallback(NULL, 0, on_packet);
  camera.RegisterServiceListener(&listener);

  NUVEQCameraCapabilities* cameras = NULL;
  uint32_t count = 0;
  if (camera.GetCapability(&cameras, &count) != 0) return 3;
  if (cameras->abilities->resolutionNum == 0) return 4;      /* a camera in formats that nobody knows */
  NUVEQResolution size = cameras->abilities->resolutions[0]; /* one of those that the camera offers */
  NUVEQCameraParam wanted = {"0", 1, (uint32_t)size.width, (uint32_t)abs(size.height), 30};
  camera.ReleaseCapability(0, cameras, count);

  int32_t result = camera.OpenCameraDevice(&wanted);
  sleep(result == 0 ? 1 : 0); /* on_packet runs on the library's own thread meanwhile */
  camera.CloseCameraDevice("0", 1);
  return dlclose(library) != 0 || result != 0;
}
