// The library as a host has it that links with it and knows nothing of Qt.

#include "client.h"
#include "korrin.h"

#include <cstdio>
#include <fstream>

namespace
{

void *handle = nullptr;

std::string directoryOf(const std::string &file)
{
    return file.substr(0, file.rfind('/'));
}

const char *modeOf(const std::string &operation)
{
    if (operation == "upload")
        return KORRIN_MODE_S3_UPLOAD;
    // Only this mode keeps a log.
    return operation == "log" || operation == "kept" ? KORRIN_MODE_UPDATE
                                                     : KORRIN_MODE_REMOTE_ACCESS;
}

void set(const char *key, const std::string &value)
{
    korrinSetParameter(handle, key, value.c_str());
}

void setUp(const Job &job)
{
    set(KORRIN_KEY_SERVER_URL, job.url + BUCKET_PATH);
    set(KORRIN_KEY_MODE, modeOf(job.operation));
    set(KORRIN_KEY_LANGUAGE_CODE, LANGUAGE);
    set(KORRIN_KEY_PRODUCT_NO, PRODUCT_NO);
    set(KORRIN_KEY_SOFT_VER, SOFT_VERSION);
    set(KORRIN_KEY_RECV_TIMEOUT, std::to_string(TIMEOUT_S));
    set(KORRIN_KEY_AWS_ACCESS_KEY, ACCESS_KEY);
    set(KORRIN_KEY_AWS_SECRET_ACCESS_KEY, SECRET_KEY);
    set(KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, directoryOf(job.file));
}

void keepRecords(const Job &job)
{
    std::ofstream log(directoryOf(job.file) + "/cloudlog.txt");
    for (int i = 0; i < job.count; ++i)
        log << "is=cloudlog&lang=en&pn=PN-1&ed=" << std::string(400, 'r') << '\n';
}

bool report(int result)
{
    if (!result)
        std::fprintf(stderr, "%s\n", korrinGetParameter(handle, KORRIN_KEY_ERROR_DETAIL));
    return result != 0;
}

} // namespace

Exchange exchangeFor(const Job &job)
{
    if (!korrinOpen() || !(handle = korrinCreateHandle()))
        return {};
    setUp(job);
    if (job.operation == "kept")
        keepRecords(job);
    if (job.operation == "check" || job.operation == "log" || job.operation == "kept")
        return [] { return report(korrinCheckEnable(handle)); };
    if (job.operation == "receive")
        return [=] { return report(korrinRecvFile(handle, job.file.c_str())); };
    if (job.operation == "upload")
        return [=] { return report(korrinSendFile(handle, job.file.c_str())); };
    return {};
}

int main(int argc, char **argv)
{
    return runClient(argc, argv);
}
