// What a program with libcurl alone would do, with a new easy handle for each exchange.

#include "client.h"
#include "signature.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <curl/curl.h>
#include <expat.h>
#include <initializer_list>
#include <map>
#include <memory>
#include <new>

namespace
{

using File = std::unique_ptr<FILE, int (*)(FILE *)>;
using Headers = std::unique_ptr<curl_slist, void (*)(curl_slist *)>;

File openFile(const std::string &path, const char *mode)
{
    return {std::fopen(path.c_str(), mode), std::fclose};
}

/// A block that grows by moving pages, not bytes.
class Body
{
public:
    Body() = default;
    ~Body() { std::free(data); }
    Body(const Body &) = delete;
    Body &operator=(const Body &) = delete;

    void append(const char *bytes, std::size_t count)
    {
        if (size + count > capacity)
            reserve(std::max(size + count, capacity * 2));
        std::memcpy(data + size, bytes, count);
        size += count;
    }

    void reserve(std::size_t count)
    {
        char *moved = static_cast<char *>(std::realloc(data, count));
        if (!moved)
            throw std::bad_alloc();
        data = moved;
        capacity = count;
    }

    char *data = nullptr;
    std::size_t size = 0;

private:
    std::size_t capacity = 0;
};

std::size_t appendToBody(char *bytes, std::size_t, std::size_t count, void *body)
{
    static_cast<Body *>(body)->append(bytes, count);
    return count;
}

struct Source {
    const char *next;
    std::size_t left;
};

std::size_t readFromMemory(char *out, std::size_t size, std::size_t count, void *source)
{
    auto *memory = static_cast<Source *>(source);
    const std::size_t piece = std::min(size * count, memory->left);
    std::memcpy(out, memory->next, piece);
    memory->next += piece;
    memory->left -= piece;
    return piece;
}

/// One easy handle, configured for what all exchanges share, for one exchange.
class Request
{
public:
    Request(const Job &job, const std::string &path)
    {
        set(CURLOPT_URL, (job.url + path).c_str());
        set(CURLOPT_PROXY, "");
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_FAILONERROR, 1L);
        set(CURLOPT_LOW_SPEED_LIMIT, 1L);
        set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(TIMEOUT_S));
        // What the other programs' requests carry.
        set(CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
        set(CURLOPT_USERAGENT, "Mozilla/5.0");
        addHeader("Accept-Language: en,*");
        addHeader("Expect:");
    }
    ~Request() { curl_easy_cleanup(curl); }
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;

    template <typename Value>
    void set(CURLoption option, Value value)
    {
        curl_easy_setopt(curl, option, value);
    }

    void addHeader(const std::string &line)
    {
        headers.reset(curl_slist_append(headers.release(), line.c_str()));
    }

    void receiveInto(Body *body)
    {
        set(CURLOPT_WRITEFUNCTION, appendToBody);
        set(CURLOPT_WRITEDATA, body);
    }

    bool perform()
    {
        set(CURLOPT_HTTPHEADER, headers.get());
        const CURLcode code = curl_easy_perform(curl);
        if (code != CURLE_OK)
            std::fprintf(stderr, "%s\n", curl_easy_strerror(code));
        return code == CURLE_OK;
    }

private:
    CURL *const curl = curl_easy_init();
    Headers headers{nullptr, curl_slist_free_all};
};

struct Answer {
    std::string element;
    std::map<std::string, std::string> values;
};

void XMLCALL startElement(void *answer, const XML_Char *name, const XML_Char **)
{
    static_cast<Answer *>(answer)->element = name;
}

void XMLCALL addText(void *answer, const XML_Char *text, int size)
{
    auto *parsed = static_cast<Answer *>(answer);
    parsed->values[parsed->element].append(text, static_cast<std::size_t>(size));
}

bool isGranted(const Body &xml, const std::string &is)
{
    Answer answer;
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                         XML_ParserFree);
    XML_SetUserData(parser.get(), &answer);
    XML_SetElementHandler(parser.get(), startElement, nullptr);
    XML_SetCharacterDataHandler(parser.get(), addText);
    return XML_Parse(parser.get(), xml.data, static_cast<int>(xml.size), 1) == XML_STATUS_OK
        && answer.values["is"] == is && answer.values["status"] == "1";
}

using Items = std::initializer_list<std::pair<const char *, std::string>>;

std::string encode(const Items &items)
{
    std::string query;
    for (const auto &[name, value] : items) {
        char *escaped = curl_easy_escape(nullptr, value.c_str(), static_cast<int>(value.size()));
        query += (query.empty() ? "" : "&") + std::string(name) + '=' + escaped;
        curl_free(escaped);
    }
    return query;
}

bool check(const Job &job, const std::string &path, const std::string &is)
{
    const std::string query =
        encode({{"is", is}, {"lang", LANGUAGE}, {"pn", PRODUCT_NO}, {"sv", SOFT_VERSION}});
    Body answer;
    Request request(job, path + '?' + query);
    request.receiveInto(&answer);
    return request.perform() && isGranted(answer, is);
}

std::string logRecord(const Job &job)
{
    timespec time = {};
    clock_gettime(CLOCK_REALTIME, &time);
    char seconds[32];
    std::strftime(seconds, sizeof seconds, "%Y/%m/%d %H:%M:%S", std::localtime(&time.tv_sec));
    const std::string settings = "http_proxy:,https_proxy:,server_url:" + job.url + BUCKET_PATH
        + ",recv_timeout:" + std::to_string(TIMEOUT_S) + ",language_code:" + LANGUAGE
        + ",product_name:,result:,soft_ver:" + SOFT_VERSION
        + ",send_data_type:,download_file_path:,cloud_log_file_save_dir:" + job.file
        + ",cloud_log_file_max_size:";
    return encode({{"is", "cloudlog"},
                   {"lang", LANGUAGE},
                   {"pn", PRODUCT_NO},
                   {"ldt", seconds + ('.' + std::to_string(time.tv_nsec / 1000000))},
                   {"mode", "update"},
                   {"fn", "korrinCheckEnable"},
                   {"fa", "-"},
                   {"en", "0"},
                   {"ed", "0:Version 2.0 is ready."},
                   {"pr", settings}});
}

bool postLog(const Job &job)
{
    const std::string record = logRecord(job);
    Body answer;
    Request request(job, "/su/upload");
    request.set(CURLOPT_POSTFIELDS, record.c_str());
    request.receiveInto(&answer);
    return request.perform() && isGranted(answer, "cloudlog");
}

bool checkService(const Job &job)
{
    return check(job, "/ra/search", "chkra");
}

bool checkAndLog(const Job &job)
{
    return check(job, "/su/search", "chkud") && postLog(job);
}

bool receive(const Job &job)
{
    Body body;
    Request request(job, "/ra/download");
    request.receiveInto(&body);
    if (!request.perform())
        return false;
    const File file = openFile(job.file, "w");
    return file && std::fwrite(body.data, 1, body.size, file.get()) == body.size
        && std::fflush(file.get()) == 0;
}

bool receiveStreamed(const Job &job)
{
    const File file = openFile(job.file, "w");
    if (!file)
        return false;
    Request request(job, "/ra/download");
    request.set(CURLOPT_WRITEDATA, file.get()); // libcurl's own way to write a file
    return request.perform() && std::fflush(file.get()) == 0;
}

void sign(Request *request, const std::string &path)
{
    const std::time_t now = std::time(nullptr);
    char date[40];
    std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&now));
    const std::string signature =
        signatureOf(SECRET_KEY, std::string("PUT\n\napplication/zip\n") + date + '\n' + path);
    request->addHeader(std::string("Date: ") + date);
    request->addHeader(std::string("Authorization: AWS ") + ACCESS_KEY + ':' + signature);
    request->addHeader("Content-Type: application/zip");
}

/// @p configure says where the body comes from.
template <typename Configure>
bool put(const Job &job, std::size_t size, Configure configure)
{
    const std::string path = BUCKET_PATH + job.file.substr(job.file.rfind('/') + 1);
    Request request(job, path);
    request.set(CURLOPT_UPLOAD, 1L);
    request.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
    configure(request);
    sign(&request, path);
    return request.perform();
}

std::size_t sizeOf(FILE *file)
{
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::rewind(file);
    return static_cast<std::size_t>(size);
}

bool upload(const Job &job)
{
    const File file = openFile(job.file, "r");
    if (!file)
        return false;
    Body body;
    body.reserve(sizeOf(file.get()));
    Source source{body.data, std::fread(body.data, 1, sizeOf(file.get()), file.get())};
    return put(job, source.left, [&](Request &request) {
        request.set(CURLOPT_READFUNCTION, readFromMemory);
        request.set(CURLOPT_READDATA, &source);
    });
}

bool uploadStreamed(const Job &job)
{
    const File file = openFile(job.file, "r");
    return file && put(job, sizeOf(file.get()), [&](Request &request) {
               request.set(CURLOPT_READDATA, file.get());
           });
}

} // namespace

Exchange exchangeFor(const Job &job)
{
    static const std::map<std::string, bool (*)(const Job &)> operations = {
        {"check", checkService}, {"log", checkAndLog},
        {"receive", receive},    {"receive-streamed", receiveStreamed},
        {"upload", upload},      {"upload-streamed", uploadStreamed},
    };
    const auto found = operations.find(job.operation);
    if (found == operations.end())
        return {};
    const auto operation = found->second;
    return [=] { return operation(job); };
}

int main(int argc, char **argv)
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    return runClient(argc, argv);
}
