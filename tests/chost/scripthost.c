/* Makes the calls that it reads from standard input, one per line, and answers each with one line:
 * the result, and a text or data in hexadecimal where the call gives one.
 *
 *   open | close | version | debug N | create | dispose H | set H KEY VALUE | get H KEY | check H
 *   send H DATA SIZE | recv H | recvnull H data|size|both | sendfile H PATH | recvfile H PATH
 *   stderr PATH   send standard error to a file from now on
 *   locale        setlocale(LC_ALL, NULL)
 *   descriptors N open files until only N more can be opened; -1 closes them again
 *   mark          getppid(), from which syscallkill counts
 *
 * H is a number that "create" gave, "null", or "foreign" for a pointer that is no handle. KEY,
 * VALUE, DATA and PATH are hexadecimal bytes, "-" for an empty text or "null" for a null pointer.
 */
#include "korrin.h"
#include "korrinlib.h"

#include <fcntl.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

enum { MAX_HANDLES = 64, MAX_FILLERS = 256, MAX_WORDS = 5, MAX_LINE = 8 * 1024 * 1024 };

static struct KorrinLib lib;
static void *handles[MAX_HANDLES];
static int handleCount;
static char notAHandle[64];

static void *toHandle(const char *word)
{
    if (strcmp(word, "foreign") == 0)
        return notAHandle;
    return strcmp(word, "null") == 0 ? NULL : handles[atoi(word)];
}

/* Decodes in place: the bytes are never longer than their digits. */
static char *toBytes(char *word)
{
    size_t size = strlen(word) / 2;
    if (strcmp(word, "null") == 0)
        return NULL;
    for (size_t i = 0; i < size; ++i) {
        const char digits[3] = {word[2 * i], word[2 * i + 1], '\0'};
        word[i] = (char)strtol(digits, NULL, 16);
    }
    word[size] = '\0';
    return word;
}

static void answer(int result, const char *bytes, int size)
{
    printf("%d ", result);
    for (int i = 0; i < size; ++i)
        printf("%02x", (unsigned char)bytes[i]);
    printf("\n");
    fflush(stdout);
}

static void answerText(int result, const char *text)
{
    answer(result, text, (int)strlen(text));
}

static void receive(void *handle)
{
    const char *data = "untouched";
    int size = -1;
    const int result = lib.recvData(handle, &data, &size);
    answer(result, data ? data : "", data ? size : 0);
}

static void receiveNull(void *handle, const char *which)
{
    const char *data = "untouched";
    int size = 7;
    const int isDataNull = strcmp(which, "size") != 0;
    const int isSizeNull = strcmp(which, "data") != 0;
    const int result = lib.recvData(handle, isDataNull ? NULL : &data, isSizeNull ? NULL : &size);
    answerText(result, strcmp(data, "untouched") == 0 && size == 7 ? "untouched" : "touched");
}

static void redirectErrors(const char *path)
{
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    fflush(stderr);
    dup2(file, STDERR_FILENO);
    close(file);
    answer(1, "", 0);
}

static void leaveDescriptors(int count)
{
    static int fillers[MAX_FILLERS];
    static int fillerCount;
    const struct rlimit few = {MAX_FILLERS, MAX_FILLERS};
    setrlimit(RLIMIT_NOFILE, &few);
    while (fillerCount < MAX_FILLERS && (fillers[fillerCount] = dup(STDOUT_FILENO)) >= 0)
        ++fillerCount;
    for (int i = count < 0 ? fillerCount : count; i > 0; --i)
        close(fillers[--fillerCount]);
    answer(1, "", 0);
}

static void create(void)
{
    handles[handleCount] = lib.createHandle();
    const int result = handles[handleCount] ? 1 : 0;
    char number[16];
    snprintf(number, sizeof number, "%d", handleCount);
    handleCount += result;
    answerText(result, result ? number : "");
}

static void run(char **words)
{
    const char *command = words[0];
    if (strcmp(command, "open") == 0)
        answer(lib.open(), "", 0);
    else if (strcmp(command, "close") == 0)
        answer(lib.close(), "", 0);
    else if (strcmp(command, "version") == 0)
        answerText(1, lib.getSoftVersion());
    else if (strcmp(command, "debug") == 0)
        answer(lib.enableDebugOutput(atoi(words[1])), "", 0);
    else if (strcmp(command, "create") == 0)
        create();
    else if (strcmp(command, "dispose") == 0)
        answer(lib.disposeHandle(toHandle(words[1])), "", 0);
    else if (strcmp(command, "set") == 0)
        answer(lib.setParameter(toHandle(words[1]), toBytes(words[2]), toBytes(words[3])), "", 0);
    else if (strcmp(command, "get") == 0)
        answerText(1, lib.getParameter(toHandle(words[1]), toBytes(words[2])));
    else if (strcmp(command, "check") == 0)
        answer(lib.checkEnable(toHandle(words[1])), "", 0);
    else if (strcmp(command, "send") == 0)
        answer(lib.sendData(toHandle(words[1]), toBytes(words[2]), atoi(words[3])), "", 0);
    else if (strcmp(command, "recv") == 0)
        receive(toHandle(words[1]));
    else if (strcmp(command, "recvnull") == 0)
        receiveNull(toHandle(words[1]), words[2]);
    else if (strcmp(command, "sendfile") == 0)
        answer(lib.sendFile(toHandle(words[1]), toBytes(words[2])), "", 0);
    else if (strcmp(command, "recvfile") == 0)
        answer(lib.recvFile(toHandle(words[1]), toBytes(words[2])), "", 0);
    else if (strcmp(command, "stderr") == 0)
        redirectErrors(toBytes(words[1]));
    else if (strcmp(command, "locale") == 0)
        answerText(1, setlocale(LC_ALL, NULL));
    else if (strcmp(command, "descriptors") == 0)
        leaveDescriptors(atoi(words[1]));
    else if (strcmp(command, "mark") == 0)
        answer(getppid() > 0, "", 0);
    else
        answerText(-1, "unknown command");
}

int main(void)
{
    char *line = malloc(MAX_LINE);
    if (!line)
        return 2;
    loadKorrin(&lib);
    while (fgets(line, MAX_LINE, stdin)) {
        char *words[MAX_WORDS + 1] = {0};
        int count = 0;
        for (char *word = strtok(line, " \n"); word && count < MAX_WORDS;
             word = strtok(NULL, " \n"))
            words[count++] = word;
        if (count > 0)
            run(words);
    }
    free(line);
    return 0;
}
