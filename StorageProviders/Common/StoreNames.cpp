#include "StoreNames.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

namespace storage {
namespace {

constexpr unsigned mostLinks = 40; // as many as the system follows

const char *adviceFor(int error) {
    switch (error) {
    case EACCES:
        return "let the process search its folders";
    case EIO:
        return "its disk failed: see the kernel's log";
    case ELOOP:
        return "see where its links lead, or name another file";
    default:
        return "name the file by another path, from the root on";
    }
}

/// @param unanswered  what was asked in vain. @throws std::bad_alloc  where the system lacked memory for the answer.
ResolvedName unresolved(const std::string &name, const std::string &unanswered, int error) {
    if (error == ENOMEM) {
        throw std::bad_alloc();
    }
    return {name, "the name " + name + " can not be followed, because " + unanswered + " (" + std::strerror(error) +
                      "): " + adviceFor(error)};
}

/// @param target  receives what a link points to; empty when there is none. @return 0, or the error: it can not be
/// told.
int readTarget(const std::string &path, std::string &target) {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    target.assign(text.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const bool isAnswered = length >= 0 || errno == EINVAL || errno == ENOENT || errno == ENOTDIR;
    return isAnswered ? 0 : errno;
}

/// @return 0 where the name is somebody's, or the error of looking for him.
int errorOfLooking(const std::string &name) {
    struct stat status {};
    return lstat(name.c_str(), &status) == 0 ? 0 : errno;
}

} // namespace

ResolvedName resolveName(const std::string &name) {
    std::string rest = name;
    if (name.rfind('/', 0) != 0) {
        std::array<char, PATH_MAX> folder{};
        if (getcwd(folder.data(), folder.size()) == nullptr) {
            return unresolved(name, "the process's folder can not be told", errno);
        }
        rest.insert(0, "/").insert(0, folder.data());
    }
    ResolvedName resolved;
    std::string &file = resolved.file;
    std::string target;
    for (unsigned links = 0; !rest.empty();) {
        const std::string step = rest.substr(0, rest.find('/'));
        rest.erase(0, step.size() + 1);
        if (step == "..") {
            file.erase(file.empty() ? 0 : file.rfind('/'));
        } else if (!step.empty() && step != ".") {
            const std::size_t folder = file.size();
            file.append("/").append(step);
            int error = readTarget(file, target);
            if (error == 0 && !target.empty() && ++links > mostLinks) {
                error = ELOOP;
            }
            if (error != 0) {
                return unresolved(name, "where " + file + " leads can not be told", error);
            }
            if (!target.empty()) {
                file.resize(target.front() == '/' ? 0 : folder);
                rest.insert(0, "/").insert(0, target);
            }
        }
    }
    if (file.empty()) {
        file = "/";
    }
    return resolved;
}

int firstFree(const std::string &beginning, const std::string &companion, std::string &name) {
    for (unsigned number = 1;; ++number) {
        name = beginning + std::to_string(number);
        int error = errorOfLooking(name);
        if (error == ENOENT && !companion.empty()) {
            error = errorOfLooking(name + companion);
        }
        if (error != 0) {
            return error == ENOENT ? 0 : error;
        }
    }
}

} // namespace storage
