/* A platform in C: loads the library, and prints the packets that the built-in camera delivers in a second.
 */
#include <dlfcn.h>
#include <stdio.h>
#include <unistd.h>

#include "NUVEQCameraHandler.h"

static int32_t on_packet(const char* id, uint32_t id_len, const uint8_t* data, uint32_t size, int32_t one) {
  (void)one;
  printf("camera %.*s: %u bytes, NAL unit type %d\n", (int)id_len, id, size, data[4] & 31);
  return 0;
}

static int32_t on_status(const char* id, uint32_t id_len, NUVEQServiceStatus status) {
  printf("camera %.*s: %s\n", (int)id_len, id,
         status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN ? "open" : "closed");
  return 0;
}

static int32_t on_action(const char* id, uint32_t id_len, NUVEQServiceAction* action) {
  (void)id, (void)id_len;
  fprintf(stderr, "no usable camera (%.*s)\n", (int)action->contentLen, action->content);
  return 0;
}

int main(int argc, char** argv) {
  void* library = dlopen(argc > 1 ? argv[1] : "libnuveqcamerahandler.so", RTLD_NOW);
  void* symbol = library != NULL ? dlsym(library, "NUVEQGetCameraHandler") : NULL;
  if (symbol == NULL) {
    fprintf(stderr, "the library cannot be loaded\n");
    return 1;
  }
  int32_t (*get_handler)(NUVEQCameraHandler*) = NULL;
  *(void**)&get_handler = symbol; /* how POSIX turns a symbol into a function */

  NUVEQCameraHandler camera;
  NUVEQServiceListener listener = {on_status, on_action};
  NUVEQCameraCapabilities* cameras = NULL;
  uint32_t count = 0;
  if (get_handler(&camera) != 0 || camera.RegisterSendDataCallback(NULL, 0, on_packet) != 0 ||
      camera.RegisterServiceListener(&listener) != 0 || camera.GetCapability(&cameras, &count) != 0) {
    return 1;
  }
  NUVEQResolution size = cameras->abilities->resolutions[0]; /* one of what the camera offers */
  NUVEQCameraParam wanted = {"0", 1, (uint32_t)size.width, (uint32_t)size.height, 30};
  camera.ReleaseCapability(0, cameras, count);
  int32_t result = camera.OpenCameraDevice(&wanted);
  sleep(result == 0 ? 1 : 0); /* on_packet runs on the library's own thread meanwhile */
  camera.CloseCameraDevice("0", 1);
  return dlclose(library) != 0 || result != 0;
}
