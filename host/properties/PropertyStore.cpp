// SPDX-License-Identifier: Apache-2.0
//
// Property store: finding, making and locking the file.
#define LOG_TAG "host_properties"

#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <properties/PropertyStore.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "PropertyRules.h"
#include "StoreMapping.h"

namespace hostproperties {

using android::base::unique_fd;

namespace {

/** A store that is replaced again and again while a writer waits is no store to write to. */
constexpr int kMaxOpens = 16;

Status systemError(const std::string& doing) {
    const int error = errno;
    return {.error = error, .message = doing + ": " + strerror(error)};
}

/** What every question meets until a store is made: told by its number alone, without a text. */
Status missing() {
    return {.error = ENOENT, .message = {}};
}

/** Nobody else may have put the file there. A missing folder comes back as missing(). */
Status checkPrivateFolder(const std::string& folder) {
    if (folder.empty()) return {};
    struct stat found;
    if (lstat(folder.c_str(), &found) != 0) {
        return errno == ENOENT ? missing() : systemError(folder);
    }
    if (!S_ISDIR(found.st_mode) || found.st_uid != geteuid() ||
        (found.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return {.error = EACCES, .message = folder + ": not a folder of this user alone"};
    }
    return {};
}

unique_fd openFile(const std::string& path, int mode) {
    return unique_fd(TEMP_FAILURE_RETRY(open(path.c_str(), mode | O_CLOEXEC)));
}

/** Fills a fresh file. Space is reserved now: a full disk found while writing would be fatal. */
Status fillEmptyStore(const unique_fd& fd, const std::string& path) {
    const int full = posix_fallocate(fd.get(), 0, sizeof(StoreLayout));
    if (full != 0) {
        errno = full;
        return systemError(path);
    }
    const uint64_t start[] = {StoreLayout::kMagic, StoreLayout::kVersion};
    if (TEMP_FAILURE_RETRY(pwrite(fd.get(), start, sizeof(start), 0)) != sizeof(start)) {
        return systemError(path);
    }
    if (fchmod(fd.get(), 0644) != 0) return systemError(path);
    return {};
}

/**
 * Puts an empty store at the path, whole from its first moment there: it is made under another
 * name and linked. One that somebody else made meanwhile is as good.
 */
Status makeStore(const StorePlace& place) {
    if (!place.privateFolder.empty() && mkdir(place.privateFolder.c_str(), 0700) != 0 &&
        errno != EEXIST) {
        return systemError(place.privateFolder);
    }
    // A folder that is gone again is found out by the next step.
    Status status = checkPrivateFolder(place.privateFolder);
    if (!status.ok() && status.error != ENOENT) return status;
    std::string fresh = place.path + ".XXXXXX";
    const unique_fd fd(mkostemp(fresh.data(), O_CLOEXEC));
    if (!fd.ok()) return systemError(place.path);
    status = fillEmptyStore(fd, fresh);
    if (status.ok() && link(fresh.c_str(), place.path.c_str()) != 0 && errno != EEXIST) {
        status = systemError(place.path);
    }
    unlink(fresh.c_str());
    return status;
}

/** Whether a file is still the one at the path. */
bool isAt(const unique_fd& fd, const std::string& path) {
    struct stat opened;
    struct stat named;
    return fstat(fd.get(), &opened) == 0 && stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

/** The store's file, locked against other writers until it is closed. */
unique_fd openLocked(const StorePlace& place, Status* status) {
    for (int attempt = 0; attempt < kMaxOpens; ++attempt) {
        *status = checkPrivateFolder(place.privateFolder);
        if (!status->ok() && status->error != ENOENT) return {};
        unique_fd fd = openFile(place.path, O_RDWR);
        if (!fd.ok()) {
            *status = systemError(place.path);
            if (status->error != ENOENT) return {};
            *status = makeStore(place);
            if (!status->ok()) return {};
            continue;
        }
        if (TEMP_FAILURE_RETRY(flock(fd.get(), LOCK_EX)) != 0) {
            *status = systemError(place.path);
            return {};
        }
        *status = {};
        if (isAt(fd, place.path)) return fd;
    }
    *status = {.error = EAGAIN, .message = place.path + ": replaced again and again"};
    return {};
}

}  // namespace

PropertyStore::PropertyStore(StorePlace place) : mPlace(std::move(place)) {}

PropertyStore::~PropertyStore() = default;

std::shared_ptr<const StoreMapping> PropertyStore::current() const {
    const std::lock_guard lock(mMutex);
    if (mMapping && mMapping->isCurrent()) return mMapping;
    mMapping.reset();
    Status status = checkPrivateFolder(mPlace.privateFolder);
    if (status.ok()) {
        unique_fd fd = openFile(mPlace.path, O_RDONLY | O_NONBLOCK);
        if (fd.ok()) {
            mMapping = StoreMapping::map(std::move(fd), StoreMapping::Access::kRead, &status);
            if (!status.ok()) status.message = mPlace.path + ": " + status.message;
        } else {
            status = errno == ENOENT ? missing() : systemError(mPlace.path);
        }
    }
    if (!status.ok() && status.error != ENOENT && !mWarned) {
        mWarned = true;
        ALOGW("%s; every property counts as unset", status.message.c_str());
    }
    return mMapping;
}

std::optional<std::string> PropertyStore::get(std::string_view name) const {
    const std::shared_ptr<const StoreMapping> mapping = current();
    if (!mapping) return std::nullopt;
    const StoreEntry* entry = mapping->find(name);
    if (!entry) return std::nullopt;
    return StoreMapping::read(*entry);
}

Status PropertyStore::set(std::string_view name, std::string_view value) {
    if (const std::string why = whyNoName(name); !why.empty()) {
        return {.error = EINVAL, .message = "bad name \"" + std::string(name) + "\": " + why};
    }
    if (const std::string why = whyNoValue(value); !why.empty()) {
        return {.error = EINVAL, .message = "bad value for " + std::string(name) + ": " + why};
    }
    Status status;
    unique_fd fd = openLocked(mPlace, &status);
    if (!fd.ok()) return status;
    const auto mapping = StoreMapping::map(std::move(fd), StoreMapping::Access::kWrite, &status);
    if (!mapping) return {.error = status.error, .message = mPlace.path + ": " + status.message};
    status = mapping->write(name, value);
    if (!status.ok()) status.message = std::string(name) + ": " + status.message;
    return status;
}

void PropertyStore::forEach(
        const std::function<void(const std::string& name, const std::string& value)>& visit) const {
    const std::shared_ptr<const StoreMapping> mapping = current();
    if (!mapping) return;
    const StoreLayout& layout = mapping->layout();
    const size_t size = layout.size();
    for (size_t i = 0; i < size; ++i) {
        const std::optional<std::string> value = StoreMapping::read(layout.entries[i]);
        if (value) visit(layout.entries[i].name.load(), *value);
    }
}

}  // namespace hostproperties
