#include "keys.h"

#include <algorithm>
#include <korrin.h>
#include <numeric>

namespace
{

/// Insertions, deletions and replacements that turn one text into the other (Levenshtein).
size_t distance(const std::string &a, const std::string &b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t(0));
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

const std::vector<Key> &allKeys()
{
    static const std::vector<Key> keys = {
        {KORRIN_KEY_SERVER_URL, true, "URL", "",
         "the server; in mode \"s3_upload\" the bucket's address, ending in \"/\""},
        {KORRIN_KEY_MODE, true, "", "",
         "update, remote_access, submit_info or s3_upload; required"},
        {KORRIN_KEY_PRODUCT_NO, true, "", "", "product number; required"},
        {KORRIN_KEY_SOFT_VER, true, "", "", "installed software version"},
        {KORRIN_KEY_LANGUAGE_CODE, true, "", "", "language of the server's messages, e.g. en"},
        {KORRIN_KEY_RECV_TIMEOUT, true, "s", "30", "longest silence of an exchange"},
        {KORRIN_KEY_HTTP_PROXY, true, "URL", "none",
         "proxy of all exchanges, http://[user:password@]host:port"},
        {KORRIN_KEY_HTTPS_PROXY, true, "URL", "none", "reported in the cloud log, used by nothing"},
        {KORRIN_KEY_PRODUCT_NAME, true, "", "", "product name, for the cloud log"},
        {KORRIN_KEY_SEND_DATA_TYPE, true, "", "",
         "what send does in mode \"update\": result or update_log"},
        {KORRIN_KEY_RESULT, true, "", "", "outcome of an update to report: 1 succeeded, 0 failed"},
        {KORRIN_KEY_DOWNLOAD_FILE_PATH, true, "", "",
         "name of the file to receive in mode \"update\""},
        {KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, true, "", ".",
         "existing directory of the cloud log file"},
        {KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE, true, "bytes", "no limit",
         "greatest size of the cloud log file; 0 keeps nothing"},
        {KORRIN_KEY_AWS_ACCESS_KEY, true, "", "", "access key of the S3 account"},
        {KORRIN_KEY_AWS_SECRET_ACCESS_KEY, true, "", "", "its secret; never shown"},
        {KORRIN_KEY_ERROR_NO, false, "", "0", "number of the last error, 0 after a success"},
        {KORRIN_KEY_ERROR_TEXT, false, "", "no error.", "its text, or the server's message"},
        {KORRIN_KEY_ERROR_DETAIL, false, "", "no error.", "what exactly went wrong"},
        {KORRIN_KEY_IS, false, "", "", "kind of the request that the server answered"},
        {KORRIN_KEY_STATUS, false, "", "", "1 when the server granted the request"},
        {KORRIN_KEY_STATUS_CODE, false, "", "", "the server's own number"},
        {KORRIN_KEY_MESSAGE, false, "", "", "the server's message"},
        {KORRIN_KEY_NEW_SOFT_VER, false, "", "", "version that the server offers"},
        {KORRIN_KEY_FUNC_NAME, false, "", "", "the last function, as in the cloud log"},
        {KORRIN_KEY_FUNC_ARGS, false, "", "", "its arguments, as in the cloud log"},
    };
    return keys;
}

const Key *findKey(const std::string &name)
{
    const auto &keys = allKeys();
    const auto found =
        std::find_if(keys.begin(), keys.end(), [&](const Key &key) { return name == key.name; });
    return found == keys.end() ? nullptr : &*found;
}

const Key &nearestKey(const std::string &name)
{
    const auto &keys = allKeys();
    const auto end =
        std::find_if(keys.begin(), keys.end(), [](const Key &key) { return !key.settable; });
    return *std::min_element(keys.begin(), end, [&](const Key &a, const Key &b) {
        return distance(name, a.name) < distance(name, b.name);
    });
}
