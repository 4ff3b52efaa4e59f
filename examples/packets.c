/*
 * A minimal host: loads the library, captures from the built-in camera for one second and prints each packet.
 *
 *   cc -std=c99 -Iinclude examples/packets.c -o packets
 *   ./packets build/demo/bin/libnuveqcamerahandler.so
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "NUVEQCameraHandler.h"

enum { kSuccess = 0, kFailure = 1, kNoCamera = 3, kNoSize = 4 };

/* Runs on the library's encoder thread. The packet is valid until the function returns. */
static int32_t on_packet(const char* id, uint32_t id_len, const uint8_t* data, uint32_t size,
                         int32_t reserved) {
  (void)reserved;
  /* An access unit starts with a four-byte start code and the header of its first NAL unit. */
  printf("camera %.*s: %u bytes, NAL unit type %d\n", (int)id_len, id, size, data[4] & 31);
  return 0;
}

static int32_t on_action(const char* id, uint32_t id_len, NUVEQServiceAction* action) {
  (void)id;
  (void)id_len;
  if (action->type == NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR) {
    fprintf(stderr, "no usable camera (%.*s)\n", (int)action->contentLen, action->content);
  }
  return 0;
}

/* The first size that the camera lists, or 0x0 if it lists none. */
static NUVEQResolution first_size(const NUVEQCameraCapabilities* cameras) {
  const NUVEQResolution none = {0, 0};
  return cameras->abilities->resolutionNum > 0 ? cameras->abilities->resolutions[0] : none;
}

static int capture_for_a_second(const NUVEQCameraHandler* camera) {
  /* [README: begin] */
  NUVEQServiceListener listener = {NULL, on_action}; /* no status reports */
  camera->RegisterSendDataCallback(NULL, 0, on_packet);
  camera->RegisterServiceListener(&listener);

  NUVEQCameraCapabilities* cameras = NULL;
  uint32_t count = 0;
  if (camera->GetCapability(&cameras, &count) != NUVEQ_CAMERA_OK) return kNoCamera;
  NUVEQResolution size = first_size(cameras);
  camera->ReleaseCapability(0, cameras, count);
  if (size.width == 0) return kNoSize;

  NUVEQCameraParam request = {"0", 1, (uint32_t)size.width, (uint32_t)abs(size.height), 30};
  int32_t result = camera->OpenCameraDevice(&request);
  if (result == NUVEQ_CAMERA_OK) sleep(1); /* on_packet runs on the library's encoder thread */
  camera->CloseCameraDevice("0", 1);       /* cleans up after a failed open, too */
  /* [README: end] */
  return result == NUVEQ_CAMERA_OK ? kSuccess : kFailure;
}

int main(int argc, char** argv) {
  void* library = dlopen(argc > 1 ? argv[1] : "libnuveqcamerahandler.so", RTLD_NOW);
  if (library == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return kFailure;
  }
  NUVEQGetCameraHandlerFunction get_handler = NULL;
  /* ISO C cannot cast void* to a function pointer. */
  *(void**)&get_handler = dlsym(library, "NUVEQGetCameraHandler");
  NUVEQCameraHandler camera;
  int status = kFailure;
  if (get_handler != NULL && get_handler(&camera) == NUVEQ_CAMERA_OK) {
    status = capture_for_a_second(&camera);
  }
  return dlclose(library) == 0 ? status : kFailure;
}
