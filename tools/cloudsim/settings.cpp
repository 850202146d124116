#include "settings.h"

#include <vector>

namespace
{

const std::vector<std::string> keys = {
    "http_proxy",
    "https_proxy",
    "server_url",
    "recv_timeout",
    "language_code",
    "product_name",
    "result",
    "soft_ver",
    "send_data_type",
    "download_file_path",
    "cloud_log_file_save_dir",
    "cloud_log_file_max_size",
};

} // namespace

nlohmann::json settingsFromSummary(const std::string &summary)
{
    nlohmann::json settings = nlohmann::json::object();
    size_t begin = 0;
    for (size_t i = 0; i < keys.size(); ++i) {
        const std::string head = keys[i] + ":";
        if (summary.compare(begin, head.size(), head) != 0)
            return {{"", summary}};
        begin += head.size();
        const bool isLast = i + 1 == keys.size();
        const size_t end = isLast ? summary.size() : summary.find("," + keys[i + 1] + ":", begin);
        if (end == std::string::npos)
            return {{"", summary}};
        settings[keys[i]] = summary.substr(begin, end - begin);
        begin = end + 1;
    }
    return settings;
}
