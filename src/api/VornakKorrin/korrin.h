/**
 * @file korrin.h
 * @brief VornakKorrin: talk to the maker's cloud from a device's host application.
 *
 * Thirteen blocking C functions over HTTP(S): update checks, downloads, result and log reports,
 * remote-access checks and signed uploads to Amazon S3. Link with libVornakKorrin.so.1 or load it
 * with dlopen(); nothing of Qt appears here.
 *
 * A minimal update check, of the server at a URL such as "https://cloud.example.com/":
 * @code
 * if (!korrinOpen())
 *     return 1; // the process can open no more files
 * void *handle = korrinCreateHandle();
 * korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, url);
 * korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
 * korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
 * korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, "1.0");
 * korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE, "0"); // keep no log file
 * int checked = korrinCheckEnable(handle);
 * if (checked) {
 *     const char *offered = korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER);
 *     printf("new version: %s\n", offered[0] ? offered : "none");
 * } else {
 *     printf("failed: %s\n", korrinGetParameter(handle, KORRIN_KEY_ERROR_DETAIL));
 * }
 * korrinDisposeHandle(handle);
 * korrinClose();
 * @endcode
 *
 * Conventions of all calls
 *
 * - Results. An int result is 1 for success and 0 for failure; nothing else occurs. Why a call
 *   failed stands on its handle: read #KORRIN_KEY_ERROR_NO, #KORRIN_KEY_ERROR_TEXT and
 *   #KORRIN_KEY_ERROR_DETAIL. While the library is closed, every call that takes a handle is
 *   refused (error 101) and changes nothing, and so is a call with a handle that korrinCreateHandle
 *   did not return or that has been disposed of (error 102); these two errors go to the debug
 *   output only.
 * - Words. Service and file calls are korrinCheckEnable(), korrinSendData(), korrinRecvData(),
 *   korrinSendFile() and korrinRecvFile(). An exchange is one request and its answer.
 * - Text. Arguments are NUL-terminated and read as Latin-1, of which ASCII is a part; a null
 *   pointer counts as "". Returned text is UTF-8 with Qt 6, and with a Qt 5 built on ICU, as
 *   Debian's is; other builds of Qt 5 use the encoding of the process's locale. It ends with a NUL.
 * - Memory. The host frees nothing. Returned text and data live in the handle's one return buffer:
 *   valid until the next korrinGetParameter() or korrinRecvData() on the same handle, its disposal
 *   or korrinClose(). Copy what must last longer.
 * - Threads. Calls block. Different handles may be used by different threads at the same time; one
 *   handle belongs to one thread at a time. The exceptions, each callable from any thread:
 *   korrinDisposeHandle() and korrinClose(), which end what runs on a handle. korrinOpen() must not
 *   run beside other calls.
 * - Out of memory. The call returns its failure value and stores error 401. A C++ host may see a
 *   std::bad_alloc leave a call when memory ends before the call's work has begun.
 * - Out of files. In a process that cannot open eight more files and sockets korrinOpen() fails,
 *   and so does each exchange, with error 301 and "Too many open files" in its detail.
 * - Forking. A child made by fork() has no use of a library that its parent has open: fork first,
 *   then open. A library that is closed may be opened in either.
 * - Signals. Qt ignores SIGPIPE from its first socket write on; a handler that the host had for it
 *   is lost, also after korrinClose().
 */
#ifndef KORRIN_H
#define KORRIN_H

#if defined(__GNUC__)
#define KORRIN_API __attribute__((visibility("default")))
#else
#define KORRIN_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Parameters that the host sets
 * Keys are case-sensitive. A value is text without surrounding white space.
 * @{
 */

/** Proxy of all exchanges, "http://[user:password@]host:port". The port must be given; path and
 *  query are ignored. For an https server it is asked for a CONNECT tunnel. Default: none; no
 *  environment variable and no system setting is ever used. */
#define KORRIN_KEY_HTTP_PROXY "http_proxy"
/** Stored and reported in the cloud log; used by no exchange. */
#define KORRIN_KEY_HTTPS_PROXY "https_proxy"
/** Base URL of the server, http or https; its path is replaced in each request. In mode
 *  "s3_upload": the bucket's address, ending in "/", to which the file's name is appended. */
#define KORRIN_KEY_SERVER_URL "server_url"
/** Longest silence of an exchange in whole seconds. A silence ends with progress of the request's
 *  body, with the complete head of the answer, and with bytes of its body; not with the look-up of
 *  a name, a connection, TLS or a part of the head. Default: 30, also for 0, negative values and
 *  text. From 2147484 on the milliseconds wrap around 32 bits; a negative result means no
 *  time-out. */
#define KORRIN_KEY_RECV_TIMEOUT "recv_timeout"
/** Language of the server's messages, such as "en"; query item "lang". Default: empty. */
#define KORRIN_KEY_LANGUAGE_CODE "language_code"
/** Product name; stored and reported in the cloud log only. */
#define KORRIN_KEY_PRODUCT_NAME "product_name"
/** Product number; query item "pn". Required for every service and file call. */
#define KORRIN_KEY_PRODUCT_NO "product_no"
/** Service, one of the KORRIN_MODE_ values. Required for every service and file call. */
#define KORRIN_KEY_MODE "mode"
/** Outcome of an update, #KORRIN_RESULT_SUCCEEDED or #KORRIN_RESULT_FAILED; query item "st". */
#define KORRIN_KEY_RESULT "result"
/** The installed software version; query item "sv", and "nsv" of an update result, before which a
 *  host sets it to the new version if the update succeeded. */
#define KORRIN_KEY_SOFT_VER "soft_ver"
/** Name of the file to download in mode "update"; query item "file". Not a local path. No answer
 *  names it: maker and host agree on it. */
#define KORRIN_KEY_DOWNLOAD_FILE_PATH "download_file_path"
/** What korrinSendData() and korrinSendFile() send in mode "update", one of the
 *  KORRIN_SEND_DATA_TYPE_ values. */
#define KORRIN_KEY_SEND_DATA_TYPE "send_data_type"
/** Existing directory of the cloud log file "cloudlog.txt". Default, also when there is no such
 *  directory: the working directory. */
#define KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR "cloud_log_file_save_dir"
/** Greatest size of the cloud log file in bytes, line breaks not counted; a record that would
 *  exceed it is dropped. 0 or less: nothing is kept. Default, also for text: no limit. */
#define KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE "cloud_log_file_max_size"
/** Access key ID for mode "s3_upload". */
#define KORRIN_KEY_AWS_ACCESS_KEY "aws_access_key"
/** Secret access key for mode "s3_upload"; never sent and never in the cloud log's settings. */
#define KORRIN_KEY_AWS_SECRET_ACCESS_KEY "aws_secret_access_key"

/** @} */
/**
 * @name Parameters that the library sets
 * @{
 */

/** Number of the last error, one of the KORRIN_ERROR_ values in decimal; "0" after a success. */
#define KORRIN_KEY_ERROR_NO "error_no"
/** Its text. Empty after a success whose answer had no status code, or 0. */
#define KORRIN_KEY_ERROR_TEXT "error_text"
/** Its detail, never empty once an operation has run. */
#define KORRIN_KEY_ERROR_DETAIL "error_detail"
/** Kind of request that the server's answer named. */
#define KORRIN_KEY_IS "is"
/** The answer's status: "1" granted, anything else not. */
#define KORRIN_KEY_STATUS "status"
/** The answer's status code. */
#define KORRIN_KEY_STATUS_CODE "status_code"
/** The answer's message. */
#define KORRIN_KEY_MESSAGE "message"
/** The version that an update check offered; also sent when downloading. */
#define KORRIN_KEY_NEW_SOFT_VER "new_soft_ver"
/** Name of the last recorded call. */
#define KORRIN_KEY_FUNC_NAME "func_name"
/** Its arguments as the cloud log reports them. */
#define KORRIN_KEY_FUNC_ARGS "func_args"

/** @} */
/**
 * @name Values of parameters
 * @{
 */

/** #KORRIN_KEY_MODE: update check, download, result and log; the only mode with a cloud log. */
#define KORRIN_MODE_UPDATE "update"
/** #KORRIN_KEY_MODE: remote-access check. */
#define KORRIN_MODE_REMOTE_ACCESS "remote_access"
/** #KORRIN_KEY_MODE: served as "remote_access". */
#define KORRIN_MODE_SUBMIT_INFO "submit_info"
/** #KORRIN_KEY_MODE: signed upload to Amazon S3. */
#define KORRIN_MODE_S3_UPLOAD "s3_upload"

/** #KORRIN_KEY_SEND_DATA_TYPE: the value of #KORRIN_KEY_RESULT is sent, the data are not. */
#define KORRIN_SEND_DATA_TYPE_RESULT "result"
/** #KORRIN_KEY_SEND_DATA_TYPE: the data are sent as text, up to their first NUL byte. */
#define KORRIN_SEND_DATA_TYPE_UPDATE_LOG "update_log"

/** #KORRIN_KEY_RESULT: the update succeeded. */
#define KORRIN_RESULT_SUCCEEDED "1"
/** #KORRIN_KEY_RESULT: the update failed. */
#define KORRIN_RESULT_FAILED "0"

/** @} */
/**
 * @name Error numbers
 * 1xx use of the library, 2xx the server's answer, 3xx the network, 4xx the system.
 * @{
 */

#define KORRIN_ERROR_NONE 0                      /**< no error */
#define KORRIN_ERROR_CLIENT_APPLICATION 100      /**< group of 1xx; not raised itself */
#define KORRIN_ERROR_NOT_OPENED 101              /**< library closed; debug output only */
#define KORRIN_ERROR_INVALID_HANDLE 102          /**< unknown handle; debug output only */
#define KORRIN_ERROR_PARAMETER_NOT_SET 103       /**< a needed parameter is empty; detail "key:" */
#define KORRIN_ERROR_INVALID_PARAMETER_KEY 104   /**< the host may not set this key */
#define KORRIN_ERROR_INVALID_PARAMETER_VALUE 105 /**< unknown value; detail "key:value" */
#define KORRIN_ERROR_SERVER 200                  /**< group of 2xx; not raised itself */
#define KORRIN_ERROR_XML_PARSE_FAILED 201        /**< answer is no XML; detail names the place */
#define KORRIN_ERROR_ILLEGAL_RESPONSE 202        /**< answer to another kind of request */
#define KORRIN_ERROR_STATUS 203                  /**< refused; detail "status_code:message" */
#define KORRIN_ERROR_NETWORK 300                 /**< other network error */
#define KORRIN_ERROR_CONNECTION 301              /**< refused, not found, broken off, TLS */
#define KORRIN_ERROR_PROXY 302                   /**< the proxy failed or refused */
#define KORRIN_ERROR_CONTENT 303                 /**< HTTP status 400 and up, in the text */
#define KORRIN_ERROR_PROTOCOL 304                /**< unknown scheme, invalid server_url */
#define KORRIN_ERROR_TIMEOUT 305                 /**< silence; detail "recv_timeout:value" */
#define KORRIN_ERROR_SYSTEM 400                  /**< group of 4xx; not raised itself */
#define KORRIN_ERROR_OUT_OF_MEMORY 401           /**< detail names the place */
#define KORRIN_ERROR_FILE_OPEN_FAILED 402        /**< detail "filePath:path" */
#define KORRIN_ERROR_FILE_WRITE_FAILED 403       /**< detail "(file size):written/expected" */
#define KORRIN_ERROR_NULL_POINTER 404            /**< detail names the null argument */

/** @} */

/**
 * Opens the library. Opening it again is harmless; there is no count, one korrinClose() closes it.
 *
 * A process without a QCoreApplication is given one, which the library owns until korrinClose();
 * locale, environment, working directory and standard streams are left as they were.
 *
 * @return 1 when open, 0 when memory or files ran out
 *
 * Errors: none can be stored, there is no handle yet.
 * Threads: any thread, but not beside other calls. Waits for a name look-up that an earlier
 * korrinClose() has left behind.
 */
KORRIN_API int korrinOpen(void);

/**
 * Closes the library: disposes of every handle, which ends the calls that run on them.
 * Allowed, and without effect, when it is not open.
 *
 * @return always 1
 *
 * Lifetime: all handles and all text and data returned so far become invalid.
 * Threads: any thread; waits up to 1.1 s for the calls it has ended. One that takes longer to leave
 * goes on safely; what it uses is freed by a later korrinClose().
 */
KORRIN_API int korrinClose(void);

/**
 * Returns the library's software version, such as "R7204B"; works at any time.
 *
 * @return NUL-terminated ASCII, never null
 *
 * Lifetime: static storage, valid as long as the process runs.
 * Threads: any thread.
 */
KORRIN_API const char *korrinGetSoftVersion(void);

/**
 * Switches the debug messages of the whole process on or off; they go to Qt's message handler,
 * standard error by default. Works at any time; closing the library does not change it.
 *
 * Messages carry parameter values, secrets included.
 *
 * @param enable  0 switches off, anything else on
 * @return always 1
 *
 * Threads: any thread; a call that is running may write part of its messages.
 */
KORRIN_API int korrinEnableDebugOutput(int enable);

/**
 * Creates a handle: a set of parameters and the results of the operations done with it.
 *
 * @return the handle; null when the library is closed or memory ran out
 *
 * Lifetime: until korrinDisposeHandle() or korrinClose().
 * Threads: any thread.
 */
KORRIN_API void *korrinCreateHandle(void);

/**
 * Disposes of a handle, with all text and data that it returned. An operation that runs on it in
 * another thread ends at once and returns 0.
 *
 * @param handle  the handle; null or unknown is refused
 * @return 1 when the handle was known, else 0
 *
 * Threads: any thread.
 */
KORRIN_API int korrinDisposeHandle(void *handle);

/**
 * Stores a parameter, replacing an earlier value. White space around key and value is removed.
 *
 * @param handle  the handle
 * @param key     one of the keys that the host sets, e.g. #KORRIN_KEY_MODE; Latin-1, may be null
 * @param value   the value; Latin-1, may be null or empty, which stores an empty value
 * @return 1 when the key may be set, also if the handle is null or unknown and nothing is stored;
 *         else 0
 *
 * Errors: 104 unknown key, 401 out of memory. A success stores error 0.
 * Records itself under #KORRIN_KEY_FUNC_NAME and #KORRIN_KEY_FUNC_ARGS, the value included.
 * Threads: one thread at a time per handle.
 */
KORRIN_API int korrinSetParameter(void *handle, const char *key, const char *value);

/**
 * Returns the value stored under a key, set by the host or by the library. Reading changes nothing
 * but the handle's return buffer: the errors of the last operation stay.
 *
 * @param handle  the handle
 * @param key     the key, without surrounding white space; Latin-1, may be null
 * @return NUL-terminated text, "" when there is no value; never null
 *
 * Errors: 401 out of memory.
 * Lifetime: owned by the handle; valid until the next text or data read on it, or its disposal.
 * Threads: one thread at a time per handle.
 */
KORRIN_API const char *korrinGetParameter(void *handle, const char *key);

/**
 * Asks the server whether the service of the handle's mode is enabled for this device: GET
 * "/su/search" in mode "update", "/ra/search" in "remote_access" and "submit_info".
 *
 * On success, and on a refusal with error 203, the answer stands under #KORRIN_KEY_IS,
 * #KORRIN_KEY_STATUS, #KORRIN_KEY_STATUS_CODE, #KORRIN_KEY_MESSAGE, and in mode "update" under
 * #KORRIN_KEY_NEW_SOFT_VER. They are emptied when the exchange is about to start: a call that is
 * refused before, with error 103 or 105, leaves what an earlier one stored, and so does a check in
 * another mode with #KORRIN_KEY_NEW_SOFT_VER. Read them after a success or error 203 only.
 *
 * @param handle  the handle
 * @return 1 when the server granted it, else 0
 *
 * Errors: 103, 105 parameters; 201, 202, 203 the answer; 300 to 305 the network; 401.
 * Threads: one thread at a time per handle. Blocks until the exchange and, in mode "update", the
 * posting of the cloud log have ended.
 */
KORRIN_API int korrinCheckEnable(void *handle);

/**
 * Sends a block of bytes. Mode "update" posts to "/su/upload" what #KORRIN_KEY_SEND_DATA_TYPE
 * tells; "s3_upload" puts the bytes as one "application/zip" object, signed with AWS Signature
 * Version 2, to #KORRIN_KEY_SERVER_URL followed by the name of the file that the handle sent last;
 * the other modes post to "/ra/upload" what the handle's send buffer holds, not @p data. The
 * results are those of korrinCheckEnable(), but for #KORRIN_KEY_NEW_SOFT_VER, which stays; they are
 * emptied also when #KORRIN_KEY_SEND_DATA_TYPE or #KORRIN_KEY_RESULT is refused. "s3_upload" leaves
 * them as they are.
 *
 * @param handle    the handle
 * @param data      the bytes; may be null, which sends an empty block
 * @param dataSize  their number; zero or less sends an empty block
 * @return 1 when the data were sent and accepted, else 0
 *
 * Errors: as korrinCheckEnable(); "s3_upload" never gives 2xx.
 * Lifetime: @p data is copied; the host keeps it.
 * Threads: one thread at a time per handle. Blocks as korrinCheckEnable().
 */
KORRIN_API int korrinSendData(void *handle, const char *data, int dataSize);

/**
 * Receives a block of bytes with a GET: "/su/download" in mode "update" (the file is named by
 * #KORRIN_KEY_DOWNLOAD_FILE_PATH), "/ra/download" or "/download" in the others. It empties
 * #KORRIN_KEY_IS, #KORRIN_KEY_STATUS, #KORRIN_KEY_STATUS_CODE and #KORRIN_KEY_MESSAGE unless it is
 * refused before its exchange (103, 105, 404).
 *
 * @param handle    the handle
 * @param data      out: the bytes, followed by a NUL that is not counted; null after a failure
 * @param dataSize  out: their number; 0 after a failure
 * @return 1 when the data were received, else 0
 *
 * Errors: 103, 105 parameters; 300 to 305 the network; 401; 404 when @p data or @p dataSize is
 * null, in which case nothing is touched and no data are requested.
 * Lifetime: owned by the handle; valid until the next text or data read on it, or its disposal.
 * Copy the data before reading a parameter.
 * Threads: one thread at a time per handle. Blocks as korrinCheckEnable().
 */
KORRIN_API int korrinRecvData(void *handle, const char **data, int *dataSize);

/**
 * Sends a file: as korrinSendData() with the file's contents, which pass through memory once. In
 * mode "s3_upload" its name without directories is appended to #KORRIN_KEY_SERVER_URL.
 *
 * @param handle    the handle
 * @param filePath  path of a readable file; Latin-1; null counts as ""
 * @return 1 when the file was sent and accepted, else 0
 *
 * Errors: 402 the file cannot be opened (nothing of it is sent, the results stay as they are); else
 * as korrinSendData().
 * Threads: one thread at a time per handle. Blocks as korrinCheckEnable().
 */
KORRIN_API int korrinSendFile(void *handle, const char *filePath);

/**
 * Receives a file: as korrinRecvData(), written to a local file that is created or overwritten
 * once everything has arrived. A failed exchange leaves an existing file as it was. The file is not
 * synced to the disk.
 *
 * @param handle    the handle
 * @param filePath  path of the file; Latin-1; null counts as ""
 * @return 1 when the data were received and written completely, else 0
 *
 * Errors: 402 the file cannot be opened, 403 it could not be written whole and was removed; else
 * as korrinRecvData().
 * Threads: one thread at a time per handle. Blocks as korrinCheckEnable().
 */
KORRIN_API int korrinRecvFile(void *handle, const char *filePath);

#ifdef __cplusplus
}
#endif

#endif
