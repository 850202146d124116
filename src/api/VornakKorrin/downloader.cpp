#include "downloader.h"

bool Downloader::start()
{
    return startGetRequest();
}
