#ifndef KORRIN_CLOUDDEFS_H
#define KORRIN_CLOUDDEFS_H

#include <QString>

/// The vocabulary of the library: parameter keys and values, URL path pieces, query items.
///
/// Inline variables are initialised in the order of their definition before anything that follows
/// them in a translation unit, so file-local lists may be built from them.
namespace clouddefs
{

// Keys of handle parameters.
inline const QString PKEY_HTTP_PROXY = QStringLiteral("http_proxy");
inline const QString PKEY_HTTPS_PROXY = QStringLiteral("https_proxy");
inline const QString PKEY_SERVER_URL = QStringLiteral("server_url");
inline const QString PKEY_RECV_TIMEOUT = QStringLiteral("recv_timeout");
inline const QString PKEY_LANGUAGE_CODE = QStringLiteral("language_code");
inline const QString PKEY_PRODUCT_NAME = QStringLiteral("product_name");
inline const QString PKEY_PRODUCT_NO = QStringLiteral("product_no");
inline const QString PKEY_MODE = QStringLiteral("mode");
inline const QString PKEY_RESULT = QStringLiteral("result");
inline const QString PKEY_CLOUD_LOG_FILE_SAVE_DIR = QStringLiteral("cloud_log_file_save_dir");
inline const QString PKEY_CLOUD_LOG_FILE_MAX_SIZE = QStringLiteral("cloud_log_file_max_size");
inline const QString PKEY_ERROR_NO = QStringLiteral("error_no");
inline const QString PKEY_ERROR_TEXT = QStringLiteral("error_text");
inline const QString PKEY_ERROR_DETAIL = QStringLiteral("error_detail");
inline const QString PKEY_IS = QStringLiteral("is");
inline const QString PKEY_STATUS = QStringLiteral("status");
inline const QString PKEY_STATUS_CODE = QStringLiteral("status_code");
inline const QString PKEY_MESSAGE = QStringLiteral("message");
inline const QString PKEY_SOFT_VER = QStringLiteral("soft_ver");
inline const QString PKEY_DOWNLOAD_FILE_PATH = QStringLiteral("download_file_path");
inline const QString PKEY_SEND_DATA_TYPE = QStringLiteral("send_data_type");
inline const QString PKEY_NEW_SOFT_VER = QStringLiteral("new_soft_ver");
inline const QString PKEY_AWS_ACCESS_KEY = QStringLiteral("aws_access_key");
inline const QString PKEY_AWS_SECRET_ACCESS_KEY = QStringLiteral("aws_secret_access_key");
inline const QString PKEY_FUNC_NAME = QStringLiteral("func_name");
inline const QString PKEY_FUNC_ARGS = QStringLiteral("func_args");

// Values of handle parameters.
inline const QString PVAL_MODE_UPDATE = QStringLiteral("update");
inline const QString PVAL_MODE_REMOTE_ACCESS = QStringLiteral("remote_access");
inline const QString PVAL_MODE_SUBMIT_INFO = QStringLiteral("submit_info");
inline const QString PVAL_MODE_S3_UPLOAD = QStringLiteral("s3_upload");
inline const QString PVAL_SEND_RESULT = QStringLiteral("result");
inline const QString PVAL_SEND_UPDATE_LOG = QStringLiteral("update_log");

// Pieces of the URL path.
inline const QString PATH_MODE_UPDATE = QStringLiteral("/su");
inline const QString PATH_MODE_REMOTE_ACCESS = QStringLiteral("/ra");
inline const QString PATH_MODE_SUBMIT_INFO = QStringLiteral("/si");
inline const QString PATH_MODE_S3_UPLOAD = QStringLiteral("");
inline const QString PATH_FUNC_SEARCH = QStringLiteral("/search");
inline const QString PATH_FUNC_UPLOAD = QStringLiteral("/upload");
inline const QString PATH_FUNC_DOWNLOAD = QStringLiteral("/download");

// Names of query items.
inline const QString QKEY_IS = QStringLiteral("is");
inline const QString QKEY_LANG = QStringLiteral("lang");
inline const QString QKEY_PN = QStringLiteral("pn");
inline const QString QKEY_SV = QStringLiteral("sv");
inline const QString QKEY_NSV = QStringLiteral("nsv");
inline const QString QKEY_ST = QStringLiteral("st");
inline const QString QKEY_FILE = QStringLiteral("file");
inline const QString QKEY_DATA = QStringLiteral("data");
inline const QString QKEY_LDT = QStringLiteral("ldt");
inline const QString QKEY_MODE = QStringLiteral("mode");
inline const QString QKEY_FN = QStringLiteral("fn");
inline const QString QKEY_FA = QStringLiteral("fa");
inline const QString QKEY_EN = QStringLiteral("en");
inline const QString QKEY_ED = QStringLiteral("ed");
inline const QString QKEY_PR = QStringLiteral("pr");

// Values of the query item "is".
inline const QString QVAL_IS_CHKUD = QStringLiteral("chkud");
inline const QString QVAL_IS_DLUDF = QStringLiteral("dludf");
inline const QString QVAL_IS_NSV = QStringLiteral("nsv");
inline const QString QVAL_IS_UDLOG = QStringLiteral("udlog");
inline const QString QVAL_IS_CHKRA = QStringLiteral("chkra");
inline const QString QVAL_IS_CLOUDLOG = QStringLiteral("cloudlog");

} // namespace clouddefs

#endif
