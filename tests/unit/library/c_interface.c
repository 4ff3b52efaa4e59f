/* The public header and the library in a C program. */
#include <stdio.h>
#include <string.h>

#include "NUVEQCameraHandler.h"

static int32_t on_data(const char* id, uint32_t id_len, const uint8_t* data, uint32_t data_len,
                       int32_t reserved) {
  (void)id;
  (void)id_len;
  (void)data;
  (void)data_len;
  (void)reserved;
  return 0;
}

static int reported;

static int32_t on_status(const char* id, uint32_t id_len, NUVEQServiceStatus status) {
  (void)id;
  (void)id_len;
  (void)status;
  return 0;
}

static int32_t on_action(const char* id, uint32_t id_len, NUVEQServiceAction* action) {
  (void)id_len;
  reported =
      id == NULL && action->type == 7 && action->contentLen == 3 && memcmp(action->content, "440", 3) == 0;
  return 0;
}

static int check(int holds, const char* what) {
  if (!holds) {
    fprintf(stderr, "failed: %s\n", what);
  }
  return holds ? 0 : 1;
}

int main(void) {
  NUVEQCameraHandler handler;
  NUVEQServiceListener listener = {on_status, on_action};
  NUVEQCameraParam param = {"x", 1, 640, 480, 30};
  NUVEQCameraCapabilities* capabilities = NULL;
  uint32_t count = 0;
  int failures = 0;

  failures += check(NUVEQGetCameraHandler(NULL) == NUVEQ_CAMERA_INVALID_ARGUMENT, "a null table is refused");
  failures += check(NUVEQGetCameraHandler(&handler) == NUVEQ_CAMERA_OK, "the table is filled");
  failures += check(handler.RegisterSendDataCallback(NULL, 0, on_data) == 0, "a data callback is taken");
  failures += check(handler.RegisterServiceListener(&listener) == 0, "a listener is taken");
  failures +=
      check(handler.GetCapability(&capabilities, &count) == NUVEQ_CAMERA_NOT_USABLE, "there is no camera");
  failures += check(reported, "that is reported");
  failures += check(handler.OpenCameraDevice(&param) == NUVEQ_CAMERA_INVALID_ARGUMENT, "x is no id");
  failures += check(handler.CloseCameraDevice("0", 1) == 0, "nothing is open");
  failures += check(handler.Reserved3(NULL, 0, 0, NULL) == 0 && handler.Reserved5(NULL) == 0 &&
                        handler.Reserved8(0, NULL, 0, NULL) == 0,
                    "reserved slots answer 0");
  handler.ReleaseCapability(0, NULL, 0);
  return failures;
}
