/* Uses every function and every macro of korrin.h, in C and in C++. */
#include "korrin.h"

static const char *const texts[] = {
    KORRIN_KEY_HTTP_PROXY,
    KORRIN_KEY_HTTPS_PROXY,
    KORRIN_KEY_SERVER_URL,
    KORRIN_KEY_RECV_TIMEOUT,
    KORRIN_KEY_LANGUAGE_CODE,
    KORRIN_KEY_PRODUCT_NAME,
    KORRIN_KEY_PRODUCT_NO,
    KORRIN_KEY_MODE,
    KORRIN_KEY_RESULT,
    KORRIN_KEY_SOFT_VER,
    KORRIN_KEY_DOWNLOAD_FILE_PATH,
    KORRIN_KEY_SEND_DATA_TYPE,
    KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR,
    KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE,
    KORRIN_KEY_AWS_ACCESS_KEY,
    KORRIN_KEY_AWS_SECRET_ACCESS_KEY,
    KORRIN_KEY_ERROR_NO,
    KORRIN_KEY_ERROR_TEXT,
    KORRIN_KEY_ERROR_DETAIL,
    KORRIN_KEY_IS,
    KORRIN_KEY_STATUS,
    KORRIN_KEY_STATUS_CODE,
    KORRIN_KEY_MESSAGE,
    KORRIN_KEY_NEW_SOFT_VER,
    KORRIN_KEY_FUNC_NAME,
    KORRIN_KEY_FUNC_ARGS,
    KORRIN_MODE_UPDATE,
    KORRIN_MODE_REMOTE_ACCESS,
    KORRIN_MODE_SUBMIT_INFO,
    KORRIN_MODE_S3_UPLOAD,
    KORRIN_SEND_DATA_TYPE_RESULT,
    KORRIN_SEND_DATA_TYPE_UPDATE_LOG,
    KORRIN_RESULT_SUCCEEDED,
    KORRIN_RESULT_FAILED,
};

static const int errors[] = {
    KORRIN_ERROR_NONE,
    KORRIN_ERROR_CLIENT_APPLICATION,
    KORRIN_ERROR_NOT_OPENED,
    KORRIN_ERROR_INVALID_HANDLE,
    KORRIN_ERROR_PARAMETER_NOT_SET,
    KORRIN_ERROR_INVALID_PARAMETER_KEY,
    KORRIN_ERROR_INVALID_PARAMETER_VALUE,
    KORRIN_ERROR_SERVER,
    KORRIN_ERROR_XML_PARSE_FAILED,
    KORRIN_ERROR_ILLEGAL_RESPONSE,
    KORRIN_ERROR_STATUS,
    KORRIN_ERROR_NETWORK,
    KORRIN_ERROR_CONNECTION,
    KORRIN_ERROR_PROXY,
    KORRIN_ERROR_CONTENT,
    KORRIN_ERROR_PROTOCOL,
    KORRIN_ERROR_TIMEOUT,
    KORRIN_ERROR_SYSTEM,
    KORRIN_ERROR_OUT_OF_MEMORY,
    KORRIN_ERROR_FILE_OPEN_FAILED,
    KORRIN_ERROR_FILE_WRITE_FAILED,
    KORRIN_ERROR_NULL_POINTER,
};

int main(void)
{
    const char *data;
    int size;
    void *handle;
    if (!korrinOpen())
        return 1;
    korrinEnableDebugOutput(0);
    handle = korrinCreateHandle();
    korrinSetParameter(handle, texts[0], korrinGetSoftVersion());
    korrinCheckEnable(handle);
    korrinSendData(handle, "", 0);
    korrinRecvData(handle, &data, &size);
    korrinSendFile(handle, "file");
    korrinRecvFile(handle, "file");
    size = korrinGetParameter(handle, texts[1])[0] + errors[0];
    korrinDisposeHandle(handle);
    return korrinClose() + size;
}
