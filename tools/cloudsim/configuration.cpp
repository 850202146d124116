#include "configuration.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

namespace
{

using nlohmann::json;

const std::string BUILT_IN = R"({
  "products": [
    {
      "number": "KX-100",
      "version": "2.0",
      "files": {
        "1.0": { "name": "kx-100-1.0.bin", "size": 4096 },
        "2.0": { "name": "kx-100-2.0.bin", "size": 1048576 }
      },
      "remote_access": true,
      "messages": { "en": "Version 2.0 is ready.", "de": "Version 2.0 ist bereit." }
    },
    {
      "number": "KX-200",
      "version": "1.4",
      "files": {
        "1.4": { "name": "kx-200-1.4.bin", "size": 65536 }
      },
      "remote_access": false
    }
  ],
  "s3": {
    "buckets": ["kx-logs"],
    "keys": [
      { "access_key": "KORRINSIMACCESSKEY", "secret_key": "korrin/sim+secret" }
    ]
  },
  "faults": []
}
)";

const uint64_t MAX_FILE_BYTES = uint64_t(1) << 40;

/// Walks through the document; every complaint carries the line of the value in question.
class Reader
{
public:
    Reader(const LinedJson &source, std::string directory)
        : source(source), directory(std::move(directory))
    {
    }

    Configuration read() const
    {
        const Pointer root;
        expectObject(root, {"products", "s3", "faults"});
        Configuration configuration;
        Catalogue &catalogue = configuration.catalogue;
        eachOf(root / "products", [&](const Pointer &at) { readProduct(at, catalogue); });
        if (has(root / "s3"))
            readS3(root / "s3", catalogue);
        eachOf(root / "faults", [&](const Pointer &at) {
            try {
                configuration.faults.push_back(FaultRule::fromJson(value(at)));
            } catch (const std::invalid_argument &error) {
                fail(at, error.what());
            }
        });
        return configuration;
    }

private:
    using Pointer = json::json_pointer;

    const json &value(const Pointer &at) const { return source.document.at(at); }
    bool has(const Pointer &at) const { return source.document.contains(at); }

    [[noreturn]] void fail(const Pointer &at, const std::string &what) const
    {
        throw ConfigError(source.lines.at(at.to_string()), what);
    }

    /// Its key, or that of the array it stands in.
    std::string nameOf(const Pointer &at) const
    {
        const Pointer parent = at.parent_pointer();
        return value(parent).is_array() ? parent.back() : at.back();
    }

    void expectObject(const Pointer &at, const std::set<std::string> &known) const
    {
        if (!value(at).is_object())
            fail(at,
                 at.empty() ? "the configuration must be an object"
                            : "\"" + nameOf(at) + "\" must hold objects");
        for (const auto &item : value(at).items()) {
            if (known.count(item.key()) == 0)
                fail(at / item.key(), "unknown key \"" + item.key() + "\"");
        }
    }

    /// Calls @p use for each element of an array that may be absent.
    template <typename Use>
    void eachOf(const Pointer &at, Use use) const
    {
        if (!has(at))
            return;
        if (!value(at).is_array())
            fail(at, "\"" + at.back() + "\" must be an array");
        for (size_t i = 0; i < value(at).size(); ++i)
            use(at / i);
    }

    /// A text that must be there and not be empty.
    std::string text(const Pointer &object, const std::string &key) const
    {
        const Pointer at = object / key;
        if (!has(at))
            fail(object, "\"" + key + "\" is missing");
        if (!value(at).is_string() || value(at).get<std::string>().empty())
            fail(at, "\"" + key + "\" must be a text that is not empty");
        return value(at).get<std::string>();
    }

    void readProduct(const Pointer &at, Catalogue &catalogue) const
    {
        expectObject(at, {"number", "version", "files", "remote_access", "messages"});
        Product product;
        product.number = text(at, "number");
        if (catalogue.product(product.number))
            fail(at / "number", "product \"" + product.number + "\" stands twice");
        product.version = text(at, "version");
        if (has(at / "remote_access")) {
            if (!value(at / "remote_access").is_boolean())
                fail(at / "remote_access", "\"remote_access\" must be true or false");
            product.remoteAccess = value(at / "remote_access").get<bool>();
        }
        readFiles(at / "files", product, catalogue);
        readMessages(at / "messages", product);
        catalogue.products.push_back(std::move(product));
    }

    void readFiles(const Pointer &at, Product &product, const Catalogue &catalogue) const
    {
        if (!has(at))
            return;
        if (!value(at).is_object())
            fail(at, "\"files\" must be an object: a file per version");
        for (const auto &item : value(at).items()) {
            const UpdateFile file = readFile(at / item.key());
            const auto sameName = [&](const auto &entry) { return entry.second.name == file.name; };
            if (catalogue.file(file.name, "")
                || std::any_of(product.files.begin(), product.files.end(), sameName))
                fail(at / item.key(), "the file name \"" + file.name + "\" stands twice");
            product.files.emplace(item.key(), file);
        }
    }

    UpdateFile readFile(const Pointer &at) const
    {
        expectObject(at, {"name", "size", "path"});
        UpdateFile file;
        if (has(at / "size") == has(at / "path"))
            fail(at, "a file has either a \"size\" or a \"path\"");
        if (has(at / "path")) {
            file.path = text(at, "path");
            file.name = file.path.substr(file.path.rfind('/') + 1);
            if (file.path.front() != '/')
                file.path = directory + file.path;
            checkReadable(at / "path", file);
        } else {
            const json &size = value(at / "size");
            if (!size.is_number_unsigned() || size.get<uint64_t>() > MAX_FILE_BYTES)
                fail(at / "size", "\"size\" must be a number of bytes");
            file.sizeBytes = size.get<uint64_t>();
        }
        if (has(at / "name") || file.path.empty())
            file.name = text(at, "name");
        return file;
    }

    void checkReadable(const Pointer &at, const UpdateFile &file) const
    {
        try {
            file.body();
        } catch (const std::runtime_error &error) {
            fail(at, error.what());
        }
    }

    void readMessages(const Pointer &at, Product &product) const
    {
        if (!has(at))
            return;
        if (!value(at).is_object())
            fail(at, "\"messages\" must be an object: a text per language code");
        for (const auto &item : value(at).items())
            product.messages.emplace(item.key(), text(at, item.key()));
    }

    void readS3(const Pointer &at, Catalogue &catalogue) const
    {
        expectObject(at, {"buckets", "keys"});
        eachOf(at / "buckets", [&](const Pointer &bucket) {
            if (!value(bucket).is_string() || !isBucketName(value(bucket).get<std::string>()))
                fail(bucket,
                     "a bucket's name has 3 to 63 characters: a-z, 0-9, \".\", \"-\"; "
                     "not \"download\" or \"search\"");
            const std::string name = value(bucket).get<std::string>();
            if (catalogue.hasBucket(name))
                fail(bucket, "bucket \"" + name + "\" stands twice");
            catalogue.buckets.push_back(name);
        });
        eachOf(at / "keys", [&](const Pointer &key) {
            expectObject(key, {"access_key", "secret_key"});
            const std::string accessKey = text(key, "access_key");
            if (!catalogue.secretByAccessKey.emplace(accessKey, text(key, "secret_key")).second)
                fail(key / "access_key", "access key \"" + accessKey + "\" stands twice");
        });
    }

    static bool isBucketName(const std::string &name)
    {
        const std::string allowed = "abcdefghijklmnopqrstuvwxyz0123456789.-";
        return name.size() >= 3 && name.size() <= 63
            && name.find_first_not_of(allowed) == std::string::npos && name != "download"
            && name != "search";
    }

    const LinedJson &source;
    const std::string directory;
};

} // namespace

Configuration Configuration::parse(const std::string &text, const std::string &directory)
{
    const LinedJson source = LinedJson::parse(text);
    return Reader(source, directory).read();
}

Configuration Configuration::read(const std::string &fileName)
{
    errno = 0; // stays so when the file is empty, which fails too
    std::ifstream file(fileName, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf()))
        throw ConfigError(0, errno == 0 ? "the file is empty" : std::strerror(errno));
    const size_t slash = fileName.rfind('/');
    return parse(text.str(), slash == std::string::npos ? "" : fileName.substr(0, slash + 1));
}

Configuration Configuration::builtIn()
{
    return parse(BUILT_IN, "");
}

const std::string &Configuration::builtInText()
{
    return BUILT_IN;
}

json toJson(const Catalogue &catalogue)
{
    json products = json::array();
    for (const Product &product : catalogue.products) {
        json files = json::object();
        for (const auto &[version, file] : product.files)
            files[version] = {{"name", file.name}, {"size", file.body().size()}};
        products.push_back({{"number", product.number},
                            {"version", product.version},
                            {"files", files},
                            {"remote_access", product.remoteAccess},
                            {"messages", product.messages}});
    }
    json keys = json::array();
    for (const auto &key : catalogue.secretByAccessKey)
        keys.push_back({{"access_key", key.first}});
    return {{"products", products}, {"s3", {{"buckets", catalogue.buckets}, {"keys", keys}}}};
}
