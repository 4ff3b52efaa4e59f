/**
 * @file NUVEQCameraHandler.h
 * @brief Captures from the PC's built-in camera and delivers H.264 packets.
 *
 * The library exports one function, NUVEQGetCameraHandler(). It fills a table of nine functions,
 * ::NUVEQCameraHandler, which the host uses for everything else. This header is valid C99 and C++.
 *
 * A session:
 *
 *  1. NUVEQGetCameraHandler()
 *  2. RegisterSendDataCallback and RegisterServiceListener
 *  3. GetCapability, then ReleaseCapability
 *  4. OpenCameraDevice; packets arrive through the data callback
 *  5. CloseCameraDevice
 *
 * @par States
 * The library is idle or running. An open that returns ::NUVEQ_CAMERA_OK makes it running; a close makes it
 * idle. An open that fails may leave partial state, which CloseCameraDevice cleans up; see OpenCameraDevice.
 *
 * @par Threads
 * The table may be called from any thread, but it has no lock: calls of OpenCameraDevice, CloseCameraDevice
 * and GetCapability must not overlap. The data callback runs on the library's encoder thread. The status and
 * action callbacks run on the calling thread, inside the call that causes them.
 *
 * @par COM (Windows)
 * COM is initialised per thread. The first call of any function but NUVEQGetCameraHandler() and the reserved
 * ones initialises COM on its own thread. The host initialises COM on every other thread from which it
 * calls.
 *
 * @par Exceptions
 * No exception leaves the library. If one occurs, OpenCameraDevice returns ::NUVEQ_CAMERA_GRAPH_FAILED,
 * CloseCameraDevice ::NUVEQ_CAMERA_CLOSE_INCOMPLETE, GetCapability ::NUVEQ_CAMERA_NOT_USABLE, and a
 * registration ::NUVEQ_CAMERA_INVALID_ARGUMENT.
 *
 * @par Text
 * Text is not terminated unless its description says so: every pointer to characters comes with a length.
 *
 * @par ABI
 * The calling convention is the system's default for C. Sizes and offsets are those of a 64-bit system.
 */
#ifndef NUVEQ_CAMERA_HANDLER_H
#define NUVEQ_CAMERA_HANDLER_H

/* NOLINTBEGIN(modernize-*): this header is also C. */

#include <stddef.h>
#include <stdint.h>

/** @name Version of this header
 * @{ */
#define NUVEQ_CAMERA_HANDLER_VERSION_MAJOR 1
#define NUVEQ_CAMERA_HANDLER_VERSION_MINOR 0
#define NUVEQ_CAMERA_HANDLER_VERSION_PATCH 0
#define NUVEQ_CAMERA_HANDLER_VERSION "1.0.0"
/** @} */

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

/** @brief Results of the functions. Each function's description lists the values that it returns. */
enum {
  /** Success. */
  NUVEQ_CAMERA_OK = 0,
  /** An argument is null or malformed. Nothing has changed. */
  NUVEQ_CAMERA_INVALID_ARGUMENT = -2,
  /** GetCapability: a block of the records could not be allocated. */
  NUVEQ_CAMERA_NO_MEMORY = -3,
  /** OpenCameraDevice: a camera is open. Close it first. */
  NUVEQ_CAMERA_ALREADY_OPEN = -4,
  /** GetCapability: there is no built-in camera, or it could not be read. */
  NUVEQ_CAMERA_NOT_USABLE = -1000,
  /** OpenCameraDevice: the capture graph could not be built or run. */
  NUVEQ_CAMERA_GRAPH_FAILED = -1001,
  /** OpenCameraDevice: the encoder or the frame pool could not be set up. */
  NUVEQ_CAMERA_ENCODER_FAILED = -1004
};

/** @brief Results of CloseCameraDevice. */
enum {
  /** The camera is closed, but the capture graph had not completed; or the call did nothing. */
  NUVEQ_CAMERA_CLOSE_INCOMPLETE = 0,
  /** The camera is closed, and the capture graph had completed. */
  NUVEQ_CAMERA_CLOSED = 1
};

/**
 * @brief State of the camera service.
 *
 * The host defines further values; the library reports only these two.
 */
typedef enum NUVEQServiceStatus {
  NUVEQ_SERVICE_STATUS_CAMERA_CLOSED = 3,  /**< The camera has been closed. */
  NUVEQ_SERVICE_STATUS_CAMERA_OPEN = 4,    /**< The camera is open. */
  NUVEQ_SERVICE_STATUS_32_BIT = 0x7fffffff /**< Never reported; makes the enumeration 32 bits wide. */
} NUVEQServiceStatus;

/** @brief Values of NUVEQServiceAction::type. */
enum {
  /** This PC has no usable camera. The content is ::NUVEQ_SERVICE_ACTION_CONTENT_NO_CAMERA. */
  NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR = 7
};

/** @brief Content of a ::NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR action. */
#define NUVEQ_SERVICE_ACTION_CONTENT_NO_CAMERA "440"

/** @brief A condition that the host should act on. Valid during the callback only. */
typedef struct NUVEQServiceAction {
  uint32_t type;       /**< ::NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR */
  const char* content; /**< contentLen characters */
  uint32_t contentLen; /**< length of content in characters */
} NUVEQServiceAction;

/**
 * @brief Receives one packet: a whole H.264 access unit in Annex B format.
 *
 * Runs on the encoder thread, one call at a time, and never after CloseCameraDevice has returned. No other
 * frame is encoded during the call. The capture side waits once all five frame buffers are full.
 *
 * The callback cannot close the camera, and must not wait for a thread that closes it: a close waits for the
 * callback, however long it takes. The callback may call the other functions of the table while no other
 * thread opens, closes or queries. An open is then refused with ::NUVEQ_CAMERA_ALREADY_OPEN, and the packets
 * that follow carry its id. On Windows a query needs COM on this thread, too.
 *
 * A C++ exception that leaves the callback costs only that packet if the host and the library share a C++
 * runtime.
 *
 * @param id        camera id of the latest open request that had a valid id
 * @param idLen     length of @p id in characters
 * @param data      the packet; valid during the call only
 * @param dataLen   length of @p data in bytes
 * @param reserved  always 1
 * @return 0, or an error code of the host. The library logs an error code and does not send the packet
 *         again.
 */
typedef int32_t (*SendDataCallback)(const char* id, uint32_t idLen, const uint8_t* data, uint32_t dataLen,
                                    int32_t reserved);

/**
 * @brief Reports that the camera has been opened or closed.
 *
 * Runs on the calling thread, inside the call that causes the report. It must not open or query. It may
 * close:
 *  - In the report of a successful open, the close makes the open fail with ::NUVEQ_CAMERA_GRAPH_FAILED and
 *    leaves nothing to clean up.
 *  - In the report of an open that is refused with ::NUVEQ_CAMERA_ALREADY_OPEN, the close closes the camera
 *    that was open. The result of the open does not change.
 *  - In the report of a close, the close does nothing.
 *
 * @param id      id of the open or close request that causes the report
 * @param idLen   length of @p id in characters
 * @param status  the new state
 * @return 0, or an error code of the host. The library logs an error code; it has no other effect.
 */
typedef int32_t (*ServiceStatusCallback)(const char* id, uint32_t idLen, NUVEQServiceStatus status);

/**
 * @brief Reports a condition that the host should act on.
 *
 * Runs on the calling thread, inside the call that causes the report. It must not open, close or query.
 *
 * @param id      null with ::NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR
 * @param idLen   1 with ::NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR
 * @param action  the condition; valid during the call only
 * @return 0, or an error code of the host. The library logs an error code; it has no other effect.
 */
typedef int32_t (*ServiceActionCallback)(const char* id, uint32_t idLen, NUVEQServiceAction* action);

/** @brief The two report callbacks. A null callback disables its report. */
typedef struct NUVEQServiceListener {
  ServiceStatusCallback onStatus;
  ServiceActionCallback onAction;
} NUVEQServiceListener;

/**
 * @brief An open request. Owned by the caller, and read during OpenCameraDevice only.
 *
 * The id consists of decimal digits; an empty id selects camera 0. Reading stops at the first other
 * character. A value above 2147483647 is read as 2147483647, which names no camera.
 *
 * The encoder accepts 16 to 4096 pixels per side and at most as many 16x16 blocks as 4096x2304 has. It
 * refuses other sizes. If a side is odd, its last line or column is not encoded.
 *
 * If fps is 0, the camera is asked for a frame interval of 3.3 microseconds, which it may refuse or replace
 * by its shortest interval, and the encoder assumes 30 frames per second. The key frame interval is five
 * times fps frames, truncated to 16 bits. If that is 0, the first frame is the only key frame.
 */
typedef struct NUVEQCameraParam {
  const char* id;  /**< camera id, for example that of a NUVEQCameraCapabilities record */
  uint32_t idLen;  /**< length of id in characters */
  uint32_t width;  /**< pixels; a size that GetCapability does not list is requested uncompressed */
  uint32_t height; /**< pixels; the absolute value of a listed height */
  uint32_t fps;    /**< whole frames per second */
} NUVEQCameraParam;

/** @brief A frame rate in thousandths of a frame per second (30 frames per second: 30000). */
typedef struct NUVEQFpsRange {
  uint32_t minimum; /**< the rate */
  uint32_t maximum; /**< always equal to minimum */
} NUVEQFpsRange;

/** @brief A picture size in pixels. */
typedef struct NUVEQResolution {
  int32_t width;
  int32_t height; /**< negative if the driver describes the pictures as top-down */
} NUVEQResolution;

/**
 * @brief The formats of a camera.
 *
 * The two lists are independent: not every rate is available at every size. Formats that the driver does not
 * describe with a whole VIDEOINFOHEADER are left out. All values are the driver's and are not checked.
 */
typedef struct NUVEQCameraAbility {
  NUVEQFpsRange* fpsRanges;     /**< fpsRangeNum entries in ascending order; null if there are none */
  uint32_t fpsRangeNum;         /**< number of fpsRanges */
  NUVEQResolution* resolutions; /**< resolutionNum entries; null if there are none */
  uint32_t resolutionNum;       /**< number of resolutions */
  uint32_t abilityFlag;         /**< always 1 */
} NUVEQCameraAbility;

/**
 * @brief A camera.
 *
 * Created by GetCapability. Owned by the host until it passes the record to ReleaseCapability.
 */
typedef struct NUVEQCameraCapabilities {
  char* id;                      /**< camera id ("0"): terminated, in a zero-filled block of 64 bytes */
  uint32_t idLen;                /**< length of id, without the terminator */
  NUVEQCameraAbility* abilities; /**< abilityNum entries */
  uint32_t abilityNum;           /**< always 1 */
  uint8_t reserved[20];          /**< zero; free for use by the host */
} NUVEQCameraCapabilities;

/**
 * @brief The function table.
 *
 * Filled by NUVEQGetCameraHandler(). The functions are valid until the library is unloaded.
 */
typedef struct NUVEQCameraHandler {
  /**
   * @brief Registers the data callback.
   *
   * Register before opening: a callback that is replaced while the camera runs takes effect with one of the
   * next packets. Packets are discarded while no callback is registered.
   *
   * @param ignored     ignored
   * @param ignoredLen  ignored
   * @param callback    the callback
   * @retval NUVEQ_CAMERA_OK                The callback is registered.
   * @retval NUVEQ_CAMERA_INVALID_ARGUMENT  @p callback is null. The earlier callback stays registered.
   */
  int32_t (*RegisterSendDataCallback)(void* ignored, uint32_t ignoredLen, SendDataCallback callback);

  /**
   * @brief Opens the camera and starts the packets.
   *
   * Call GetCapability first: the query finds the camera and determines which of its formats is used for the
   * requested size. A successful open reports ::NUVEQ_SERVICE_STATUS_CAMERA_OPEN.
   *
   * The call returns when the camera has delivered its first frame. If no frame arrives, the call returns
   * ::NUVEQ_CAMERA_OK after five seconds on Linux, and packets start with the first frame. On Windows it
   * waits until the capture graph completes, without a timeout.
   *
   * @param param  the request
   * @retval NUVEQ_CAMERA_OK                Packets arrive until CloseCameraDevice.
   * @retval NUVEQ_CAMERA_INVALID_ARGUMENT  @p param or its id is null, or the id contains a character that is
   *                                        not a decimal digit. Nothing has changed.
   * @retval NUVEQ_CAMERA_ALREADY_OPEN      A camera is open. ::NUVEQ_SERVICE_STATUS_CAMERA_OPEN is reported
   *                                        with this request's id, and the packets that follow carry this id.
   * @retval NUVEQ_CAMERA_ENCODER_FAILED    The encoder or the frame pool refuses the request.
   *                                        Another open may follow at once.
   * @retval NUVEQ_CAMERA_GRAPH_FAILED      The graph could not be built (the index names no
   *                                        camera, the camera is in use, the format is refused)
   *                                        or run, or a thread could not be started.
   *                                        ::NUVEQ_SERVICE_STATUS_CAMERA_OPEN may have been
   *                                        reported. Call CloseCameraDevice. Until then every
   *                                        open returns ::NUVEQ_CAMERA_ENCODER_FAILED, or
   *                                        ::NUVEQ_CAMERA_ALREADY_OPEN if the graph was built.
   *
   * @note If not even an empty graph could be created, for example on a thread without COM, the open returns
   *       ::NUVEQ_CAMERA_GRAPH_FAILED and leaves nothing to close: CloseCameraDevice returns
   *       ::NUVEQ_CAMERA_CLOSE_INCOMPLETE and every open returns ::NUVEQ_CAMERA_ENCODER_FAILED. Unload the
   *       library (FreeLibrary, dlclose) and load it again. The unload unmaps it at once unless it has been
   *       loaded elsewhere in the process.
   */
  int32_t (*OpenCameraDevice)(const NUVEQCameraParam* param);

  /**
   * @brief Stops the packets, releases the camera and reports ::NUVEQ_SERVICE_STATUS_CAMERA_CLOSED.
   *
   * No callback runs after the call has returned. If no camera was open and no failed open left a graph, the
   * call does nothing and makes no report. Inside the data callback it does nothing and returns
   * ::NUVEQ_CAMERA_CLOSE_INCOMPLETE, since it would wait for the callback's own thread.
   *
   * @param id     passed on to the report; not read otherwise
   * @param idLen  passed on to the report
   * @retval NUVEQ_CAMERA_CLOSED            The camera is closed, and the capture graph had completed.
   * @retval NUVEQ_CAMERA_CLOSE_INCOMPLETE  The camera is closed, but the capture graph had not completed; or
   *                                        the call did nothing.
   *
   * @note On Windows the call waits for the encoder thread to end, so the caller must not hold the loader
   * lock (DllMain). After an open that failed it waits for no thread.
   */
  int32_t (*CloseCameraDevice)(const char* id, uint32_t idLen);

  /** @brief Does nothing. Accepts any arguments. @return 0 */
  int32_t (*Reserved3)(void* first, uint32_t second, uint32_t third, void* fourth);

  /**
   * @brief Finds the built-in camera and lists its sizes and frame rates.
   *
   * An open camera is not disturbed. On success @p *capabilities points to @p *count records (one); pass them
   * to ReleaseCapability. The previous value of @p *capabilities is not used: records of an earlier query
   * stay valid, also if this query fails, but the host must keep another pointer to them.
   *
   * After a failure @p *capabilities must be neither read nor released. It is unchanged if the query failed
   * before it allocated the first record, null if that allocation failed (::NUVEQ_CAMERA_NO_MEMORY), and
   * otherwise points to records that have already been released.
   *
   * @param capabilities  receives the records
   * @param count         receives the number of records. It is unchanged after
   *                      ::NUVEQ_CAMERA_INVALID_ARGUMENT, if there is no built-in camera, if a device name is
   *                      not valid Unicode, and if memory ran out before a camera was found; otherwise it is
   *                      1, also after a failure.
   * @retval NUVEQ_CAMERA_OK                The records are ready.
   * @retval NUVEQ_CAMERA_INVALID_ARGUMENT  An argument is null.
   * @retval NUVEQ_CAMERA_NOT_USABLE        There is no built-in camera (the action callback is called with
   *                                        ::NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR), its formats could not
   *                                        be read, a capture device has a name that is not valid Unicode, or
   *                                        memory ran out for the list of frame rates or outside of the
   *                                        records.
   * @retval NUVEQ_CAMERA_NO_MEMORY         Another block of the records could not be allocated.
   */
  int32_t (*GetCapability)(NUVEQCameraCapabilities** capabilities, uint32_t* count);

  /** @brief Does nothing. Accepts any argument. @return 0 */
  int32_t (*Reserved5)(void* first);

  /**
   * @brief Releases the records of a successful GetCapability.
   *
   * @param ignored       ignored
   * @param capabilities  the records; null is ignored
   * @param count         the number of records, as GetCapability returned it
   */
  void (*ReleaseCapability)(uint32_t ignored, NUVEQCameraCapabilities* capabilities, uint32_t count);

  /**
   * @brief Registers the report callbacks. Register before opening.
   *
   * @param listener  copied, including null callbacks
   * @retval NUVEQ_CAMERA_OK                The callbacks are registered.
   * @retval NUVEQ_CAMERA_INVALID_ARGUMENT  @p listener is null. The earlier callbacks stay registered.
   */
  int32_t (*RegisterServiceListener)(const NUVEQServiceListener* listener);

  /** @brief Does nothing. Accepts any arguments. @return 0 */
  int32_t (*Reserved8)(uint32_t first, void* second, uint32_t third, void* fourth);
} NUVEQCameraHandler;

/**
 * @brief Fills the function table.
 *
 * Accesses no camera. May be called again, and from any thread.
 *
 * @param handler  the table to fill
 * @retval NUVEQ_CAMERA_OK                The table is filled.
 * @retval NUVEQ_CAMERA_INVALID_ARGUMENT  @p handler is null.
 */
NUVEQ_EXPORT int32_t NUVEQGetCameraHandler(NUVEQCameraHandler* handler);

/** @brief Type of NUVEQGetCameraHandler(), for hosts that look it up with dlsym or GetProcAddress. */
typedef int32_t (*NUVEQGetCameraHandlerFunction)(NUVEQCameraHandler* handler);

#ifdef __cplusplus
}
#endif

/* The layout is fixed: host and library are built separately. */
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
