// SPDX-License-Identifier: MIT
// Ridge-scan identities and the key they are made with.
#include "RidgeIdentity.h"

#include "FileDescriptor.h"
#include "Hmac.h"
#include "platform/object/RandomBytes.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace tessiva::detail {
namespace {
constexpr std::size_t keySize = 32;

std::string stateDirectory() {
    if (const char* daemon = std::getenv("STATE_DIRECTORY"); daemon && *daemon == '/')
        return daemon;
    if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state == '/')
        return std::string(state) + "/tessiva";
    if (const char* home = std::getenv("HOME"); home && *home == '/')
        return std::string(home) + "/.local/state/tessiva";
    return {};
}

// Each missing folder of the path, owner-only.
void makeDirectories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0700);
    mkdir(path.c_str(), 0700);
}

bool readKey(const std::string& file, std::string& key) {
    FileDescriptor fd(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (fd.get() < 0)
        return false;
    std::string bytes(keySize, '\0');
    std::size_t got = 0;
    while (got < keySize) {
        const ssize_t n = read(fd.get(), bytes.data() + got, keySize - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        got += std::size_t(n);
    }
    key = std::move(bytes);
    return true;
}

// Writes under a temporary name and links it into place, so that a reader
// never sees half a key and two first users agree on one.
bool makeKey(const std::string& file, std::string& key) {
    const std::string temporary = file + ".new." + std::to_string(getpid());
    std::string bytes = freshIdentityKey();
    {
        FileDescriptor fd(
            open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (fd.get() < 0)
            return false;
        if (write(fd.get(), bytes.data(), bytes.size()) != ssize_t(bytes.size()) ||
            fsync(fd.get()) != 0) {
            unlink(temporary.c_str());
            return false;
        }
    }
    const bool linked = link(temporary.c_str(), file.c_str()) == 0;
    unlink(temporary.c_str());
    if (!linked)
        return readKey(file, key); // another process made it first
    key = std::move(bytes);
    return true;
}
} // namespace

ObRef<ObData> ridgescanIdentity(const std::string& key, const std::string& user,
                                const std::string& finger) {
    // The NUL keeps ("ab", "c") and ("a", "bc") apart.
    std::string message = user;
    message.push_back('\0');
    message += finger;
    const Digest256 digest = hmacSha256(key, message);
    return ObData::make(digest.data(), digest.size());
}

std::string freshIdentityKey() {
    std::string key(keySize, '\0');
    fillRandomBytes(key.data(), key.size());
    return key;
}

std::string machineIdentityKey() {
    static std::mutex mutex;
    static std::string cached;
    std::lock_guard lock(mutex);
    if (!cached.empty())
        return cached;
    const std::string directory = stateDirectory();
    if (!directory.empty()) {
        makeDirectories(directory);
        const std::string file = directory + "/ridgescan-identity.key";
        if (readKey(file, cached) || makeKey(file, cached))
            return cached;
    }
    cached = freshIdentityKey();
    return cached;
}
} // namespace tessiva::detail
