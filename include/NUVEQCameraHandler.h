/*
 * libnuveqcamerahandler: the PC's built-in camera as an H.264 packet source.
 *
 * The library exports one function, NUVEQGetCameraHandler. It fills a table of nine functions,
 * through which everything else happens. The header is valid C99 and C++.
 *
 *   query:    GetCapability -> read the records -> ReleaseCapability
 *   session:  RegisterSendDataCallback, RegisterServiceListener, GetCapability,
 *             OpenCameraDevice -> packets arrive through the data callback -> CloseCameraDevice
 *
 *   Idle --open ok--> Running --close--> Idle
 *   Idle --open fails--> see OpenCameraDevice for what a failed open leaves and how to go on
 *
 * Threads. The table's functions may be called from any thread, but the library puts no lock around
 * them: OpenCameraDevice, CloseCameraDevice and GetCapability must not overlap each other. On Windows
 * COM is a matter of the thread: the first call that does work initialises it on its own thread, and
 * the platform initialises COM on every other thread from which it calls. The data callback runs on
 * the library's encoder thread; the status and action callbacks run inside the call that causes them.
 *
 * Exceptions never leave the library; a call that meets one answers its failure code.
 *
 * Text is not terminated unless a comment says so: each pointer to characters comes with a length.
 * Calling convention is the system's standard one for C. Sizes and offsets are those of a 64-bit system.
 */
#ifndef NUVEQ_CAMERA_HANDLER_H
#define NUVEQ_CAMERA_HANDLER_H

/* NOLINTBEGIN(modernize-*): this header is also C. */

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(NUVEQ_CAMERA_HANDLER_BUILD)
#define NUVEQ_EXPORT __declspec(dllexport)
#else
#define NUVEQ_EXPORT __declspec(dllimport)
#endif
#else
#define NUVEQ_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Results of the table's functions. Each function's comment lists the ones that it can answer. */
enum {
  NUVEQ_CAMERA_OK = 0,
  NUVEQ_CAMERA_INVALID_ARGUMENT = -2, /* a null or malformed argument; nothing was changed */
  NUVEQ_CAMERA_NO_MEMORY = -3,        /* capability query: a block could not be allocated */
  NUVEQ_CAMERA_ALREADY_OPEN = -4,     /* open: close first */
  NUVEQ_CAMERA_NOT_USABLE = -1000,    /* query: no built-in camera, or it could not be read */
  NUVEQ_CAMERA_GRAPH_FAILED = -1001,  /* open: the capture graph could not be built or run */
  NUVEQ_CAMERA_ENCODER_FAILED = -1004 /* open: the encoder or the frame pool could not be set up */
};

/* State of the camera service. The platform defines more values; the library reports these two. */
typedef enum NUVEQServiceStatus {
  NUVEQ_SERVICE_STATUS_CAMERA_CLOSED = 3,
  NUVEQ_SERVICE_STATUS_CAMERA_OPEN = 4,
  NUVEQ_SERVICE_STATUS_32_BIT = 0x7fffffff /* never reported: fixes the enumeration's width */
} NUVEQServiceStatus;

/* Something the platform should act on. Valid during the callback only. */
typedef struct NUVEQServiceAction {
  uint32_t type;       /* 7: no usable camera on this PC */
  const char* content; /* contentLen characters; "440" with type 7 */
  uint32_t contentLen;
} NUVEQServiceAction;

/*
 * Receives one encoded packet: one whole H.264 access unit in Annex B form.
 *   id, idLen      camera id of the latest open request whose id was valid
 *   data, dataLen  the packet's bytes, valid during the callback only
 *   reserved       always 1
 * Answers 0, or an error code of the platform's, which is logged; the packet is not sent again.
 * Runs on the encoder thread, one call at a time, never after CloseCameraDevice has returned. While it
 * runs no other frame is encoded, and the capture side waits once its five frame buffers are full.
 * It cannot close the camera, and must not wait for another thread that does: closing waits for it, however
 * long it takes. It may call the rest of the table while no other thread opens, closes or queries: an open is
 * refused with -4, and its id goes with the packets that follow; a query needs COM on this thread, too. An
 * exception costs its packet and nothing else, where host and library share a C++ runtime.
 */
typedef int32_t (*SendDataCallback)(const char* id, uint32_t idLen, const uint8_t* data, uint32_t dataLen,
                                    int32_t reserved);

/*
 * Reports a change of the service's state. id and idLen are those of the request that caused it.
 * Answers 0, or an error code, which is logged and changes nothing. Runs on the requesting thread, inside
 * its request, and must not open or query. Closing inside the report of an open makes that open fail with
 * -1001, cleanly; inside the report of a refused one it closes the camera that was open, and the answer is -4
 * all the same; inside the report of a close it does nothing.
 */
typedef int32_t (*ServiceStatusCallback)(const char* id, uint32_t idLen, NUVEQServiceStatus status);

/*
 * Reports a NUVEQServiceAction. With type 7, id is null and idLen 1.
 * Answers 0, or an error code, which is logged and changes nothing. Runs on the requesting thread.
 */
typedef int32_t (*ServiceActionCallback)(const char* id, uint32_t idLen, NUVEQServiceAction* action);

/* The two report callbacks. Either may be null: that report is then not made. */
typedef struct NUVEQServiceListener {
  ServiceStatusCallback onStatus;
  ServiceActionCallback onAction;
} NUVEQServiceListener;

/*
 * An open request. Owned by the caller; read during OpenCameraDevice only. An id of more digits than fit is a
 * camera that is not there. The encoder takes 16 to 4096 pixels a side and as many blocks of 16x16 in all as
 * 4096x2304 has, and refuses others; of an odd side it leaves the last line out. fps 0 asks the camera for an
 * interval of 3.3 us, as fast as it can or a refusal, and is 30 for the encoder. A key frame comes every five
 * times fps frames, counted in 16 bits; where that makes 0, none comes after the first.
 */
typedef struct NUVEQCameraParam {
  const char* id;  /* camera id: idLen decimal digits; no digits mean camera 0 */
  uint32_t idLen;  /* reading stops at the first character that is no digit */
  uint32_t width;  /* pixels; a size that the capabilities do not list is tried uncompressed */
  uint32_t height; /* pixels, without the sign that a listed height may have */
  uint32_t fps;    /* whole frames per second */
} NUVEQCameraParam;

/* One frame rate, as a range whose ends are equal, in thousandths of a frame per second. */
typedef struct NUVEQFpsRange {
  uint32_t minimum; /* 30 frames per second: 30000 */
  uint32_t maximum;
} NUVEQFpsRange;

/* One picture size in pixels. The height is negative where the driver says so (top-down pictures). */
typedef struct NUVEQResolution {
  int32_t width;
  int32_t height;
} NUVEQResolution;

/*
 * What a camera can deliver. The two lists are independent: not every rate comes with every size. Formats
 * that the driver does not describe by a whole VIDEOINFOHEADER are left out; other numbers are the driver's,
 * whatever they are.
 */
typedef struct NUVEQCameraAbility {
  NUVEQFpsRange* fpsRanges; /* fpsRangeNum entries, ascending; null when there is none */
  uint32_t fpsRangeNum;
  NUVEQResolution* resolutions; /* resolutionNum entries; null when there is none */
  uint32_t resolutionNum;
  uint32_t abilityFlag; /* always 1 */
} NUVEQCameraAbility;

/* One camera. Made by GetCapability, owned by the platform until ReleaseCapability. */
typedef struct NUVEQCameraCapabilities {
  char* id;                      /* 64 bytes, zero-filled: the camera's id, terminated; "0" */
  uint32_t idLen;                /* characters of id, without the terminating zero */
  NUVEQCameraAbility* abilities; /* abilityNum entries */
  uint32_t abilityNum;           /* always 1 */
  uint8_t reserved[20];          /* zero; the platform's to use */
} NUVEQCameraCapabilities;

/*
 * The table. All functions stay valid until the library is unloaded.
 */
typedef struct NUVEQCameraHandler {
  /*
   * Stores the data callback; the first two arguments are ignored. Register before opening: a callback
   * that is replaced while packets flow takes effect with one of the next packets. Without a callback
   * packets are discarded.
   * Results: 0; -2 when callback is null (the earlier callback stays).
   */
  int32_t (*RegisterSendDataCallback)(void* ignored, uint32_t ignoredLen, SendDataCallback callback);

  /*
   * Opens the camera and starts the packets. Reports status 4. Returns when the camera has delivered
   * its first frame. If no frame arrives, it returns 0 after five seconds on Linux, and packets start
   * with the first frame; on Windows it waits until the capture graph completes, without a timeout.
   * Query capabilities first: the query finds the camera and decides which of its formats serves the
   * requested size.
   * Results and what they leave:
   *   0      packets flow until CloseCameraDevice
   *   -2     param is null, or its id is null or not all digits; nothing changed
   *   -4     already open; status 4 is reported for this request's id, and the packets that follow carry
   *          that id
   *   -1004  the encoder or the frame pool refuses the request; another may follow at once
   *   -1001  the graph could not be built (no camera by that index, camera in use, format refused) or not
   *          run, or no thread could be started; status 4 may have been reported before. Call
   *          CloseCameraDevice: until then opening answers -1004, or -4 where the graph was built. If not
   *          even an empty capture graph could be made, for example on a thread without COM, there is
   *          nothing to close: CloseCameraDevice answers 0 and opening answers -1004. Then unload the
   *          library (Windows: FreeLibrary; Linux: dlclose), which unmaps it at once if nobody else has
   *          loaded it, and load it again (LoadLibrary, dlopen)
   */
  int32_t (*OpenCameraDevice)(const NUVEQCameraParam* param);

  /*
   * Stops the packets, releases the camera and reports status 3. id is only passed on to that report, unread.
   * After it returns no callback runs. On Windows it waits for the library's thread to end, so the caller
   * must not hold the loader lock (DllMain); after an open that failed it waits for no thread. From inside
   * the data callback, whose thread it would wait for, it does nothing and answers 0.
   * Results: 1 closed, and the graph had completed; 0 closed without that, or nothing was open, which is
   * not reported.
   */
  int32_t (*CloseCameraDevice)(const char* id, uint32_t idLen);

  /* Does nothing, answers 0. Any arguments. */
  int32_t (*Reserved3)(void* first, uint32_t second, uint32_t third, void* fourth);

  /*
   * Finds the built-in camera and reads what it can deliver. A camera that is open is not disturbed. On
   * success *capabilities points at *count records (one), which the platform hands back through
   * ReleaseCapability. The value that *capabilities has before the call is not used. Records of an earlier
   * query stay valid, also when this one fails; keep another pointer to them, since this one is overwritten.
   * After a failure *capabilities must be neither read nor released. It is unchanged if the query ended
   * before the first record was allocated, null if that allocation failed (-3), and otherwise points at
   * records that have been released already.
   * Results: 0; -2 an argument is null; -1000 no built-in camera (the action callback is called with type
   * 7), its capabilities could not be read, a capture device has a name that is no Unicode text, or no
   * memory for the frame rates or for anything but the records; -3 no memory for another block of the
   * records. *count is left alone after -2, when there is no camera or such a name, and when memory ended
   * before a camera was found; it is 1 otherwise.
   */
  int32_t (*GetCapability)(NUVEQCameraCapabilities** capabilities, uint32_t* count);

  /* Does nothing, answers 0. Any argument. */
  int32_t (*Reserved5)(void* first);

  /* Releases count records as GetCapability made them; the first argument is ignored. Null is ignored. */
  void (*ReleaseCapability)(uint32_t ignored, NUVEQCameraCapabilities* capabilities, uint32_t count);

  /*
   * Copies the two report callbacks, null ones included. Register before opening.
   * Results: 0; -2 when listener is null (the earlier callbacks stay).
   */
  int32_t (*RegisterServiceListener)(const NUVEQServiceListener* listener);

  /* Does nothing, answers 0. Any arguments. */
  int32_t (*Reserved8)(uint32_t first, void* second, uint32_t third, void* fourth);
} NUVEQCameraHandler;

/*
 * Fills the table. May be called again, from any thread; it touches no camera.
 * Results: 0; -2 when handler is null.
 */
NUVEQ_EXPORT int32_t NUVEQGetCameraHandler(NUVEQCameraHandler* handler);

#ifdef __cplusplus
}
#endif

/* The layouts are a contract with programs built elsewhere. */
#if defined(__cplusplus)
#define NUVEQ_ASSERT_LAYOUT(condition, name) static_assert(condition, #name)
#else
#define NUVEQ_ASSERT_LAYOUT(condition, name) typedef char nuveq_layout_##name[(condition) ? 1 : -1]
#endif
#define NUVEQ_ASSERT_OFFSET(type, field, offset) \
  NUVEQ_ASSERT_LAYOUT(offsetof(type, field) == (offset), type##_##field)
#define NUVEQ_ASSERT_SIZE(type, size) NUVEQ_ASSERT_LAYOUT(sizeof(type) == (size), type##_size)

NUVEQ_ASSERT_SIZE(NUVEQServiceStatus, 4);

NUVEQ_ASSERT_OFFSET(NUVEQServiceAction, type, 0);
NUVEQ_ASSERT_OFFSET(NUVEQServiceAction, content, 8);
NUVEQ_ASSERT_OFFSET(NUVEQServiceAction, contentLen, 16);
NUVEQ_ASSERT_SIZE(NUVEQServiceAction, 24);

NUVEQ_ASSERT_OFFSET(NUVEQServiceListener, onStatus, 0);
NUVEQ_ASSERT_OFFSET(NUVEQServiceListener, onAction, 8);
NUVEQ_ASSERT_SIZE(NUVEQServiceListener, 16);

NUVEQ_ASSERT_OFFSET(NUVEQCameraParam, id, 0);
NUVEQ_ASSERT_OFFSET(NUVEQCameraParam, idLen, 8);
NUVEQ_ASSERT_OFFSET(NUVEQCameraParam, width, 12);
NUVEQ_ASSERT_OFFSET(NUVEQCameraParam, height, 16);
NUVEQ_ASSERT_OFFSET(NUVEQCameraParam, fps, 20);
NUVEQ_ASSERT_SIZE(NUVEQCameraParam, 24);

NUVEQ_ASSERT_OFFSET(NUVEQFpsRange, minimum, 0);
NUVEQ_ASSERT_OFFSET(NUVEQFpsRange, maximum, 4);
NUVEQ_ASSERT_SIZE(NUVEQFpsRange, 8);

NUVEQ_ASSERT_OFFSET(NUVEQResolution, width, 0);
NUVEQ_ASSERT_OFFSET(NUVEQResolution, height, 4);
NUVEQ_ASSERT_SIZE(NUVEQResolution, 8);

NUVEQ_ASSERT_OFFSET(NUVEQCameraAbility, fpsRanges, 0);
NUVEQ_ASSERT_OFFSET(NUVEQCameraAbility, fpsRangeNum, 8);
NUVEQ_ASSERT_OFFSET(NUVEQCameraAbility, resolutions, 16);
NUVEQ_ASSERT_OFFSET(NUVEQCameraAbility, resolutionNum, 24);
NUVEQ_ASSERT_OFFSET(NUVEQCameraAbility, abilityFlag, 28);
NUVEQ_ASSERT_SIZE(NUVEQCameraAbility, 32);

NUVEQ_ASSERT_OFFSET(NUVEQCameraCapabilities, id, 0);
NUVEQ_ASSERT_OFFSET(NUVEQCameraCapabilities, idLen, 8);
NUVEQ_ASSERT_OFFSET(NUVEQCameraCapabilities, abilities, 16);
NUVEQ_ASSERT_OFFSET(NUVEQCameraCapabilities, abilityNum, 24);
NUVEQ_ASSERT_OFFSET(NUVEQCameraCapabilities, reserved, 28);
NUVEQ_ASSERT_SIZE(NUVEQCameraCapabilities, 48);

NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, RegisterSendDataCallback, 0);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, OpenCameraDevice, 8);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, CloseCameraDevice, 16);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, Reserved3, 24);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, GetCapability, 32);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, Reserved5, 40);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, ReleaseCapability, 48);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, RegisterServiceListener, 56);
NUVEQ_ASSERT_OFFSET(NUVEQCameraHandler, Reserved8, 64);
NUVEQ_ASSERT_SIZE(NUVEQCameraHandler, 72);

/* NOLINTEND(modernize-*) */

#endif
