#include "FileStore.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "PlainFile.h"
#include "RecordMerge.h"
#include "VariableType.h"

namespace storage {

/// What a file held, and what the checks said of it.
struct FileStore::Image {
    Bytes bytes;
    StoreCheck check;
};

/// One of the two files, as it was found.
struct FileStore::Generation {
    std::string file;
    bool isThere = false;
    bool isUnreadable = false; ///< The disk does not give it back; its state is damaged then.
    StoreCheck check{};
    std::shared_ptr<const Image> image{}; ///< It is whole.

    bool is(StoreState state) const { return isThere && check.state == state; }
};

struct FileStore::Choice {
    std::shared_ptr<const Image> newest{}; ///< Null when there is none.
    bool isLast = false;                   ///< It is the newest file's, not the one's before it.
    bool isObstructed = false;             ///< What does not hold could not be set aside.

    GenerationId id() const {
        return newest == nullptr ? GenerationId{} : GenerationId{newest->check.generation, newest->check.sum};
    }
};

FileStore::FileStore(ResolvedName name)
    : m_name(std::move(name.file)), m_problem(std::move(name.problem)), m_before(m_name + ".1"), m_new(m_name + ".new"),
      m_folder(folderOf(m_name)) {}

EAFResult FileStore::failed(const std::string &doing, int error, Report &report) const {
    report.add(Severity::error, doing + " failed (" + std::strerror(error) + "): " + adviceFor(error));
    return codeOf(error);
}

EAFResult FileStore::open(Access access, Report &report) {
    if (m_isOpen) {
        return eAF_S_OK;
    }
    if (!m_problem.empty()) {
        report.add(Severity::error, m_problem);
        return eAF_E_INITIALIZATION_ERROR;
    }
    struct UnlockUnlessOpen {
        FileStore &store;
        ~UnlockUnlessOpen() {
            if (!store.m_isOpen) {
                store.m_lock.release();
            }
        }
    } const unlockUnlessOpen{*this};
    m_access = access;
    m_isReadOnly = true;
    if (access == Access::readWrite) {
        const EAFResult prepared = prepareWriting(report);
        if (prepared != eAF_S_OK) {
            return prepared;
        }
    } else if (!isThere(m_folder + "/.")) {
        report.add(Severity::error,
                   "the folder of the store " + m_name + " can not be entered: make it, or name another file");
        return eAF_E_INITIALIZATION_ERROR;
    }
    Choice choice;
    const EAFResult chosen = choose(choice, Care::both, report);
    m_isOpen = chosen == eAF_S_OK;
    m_known = choice.id();
    return chosen;
}

/// Takes the lock and clears away what a killed host left. The store stays a read-only one where that is all there is.
EAFResult FileStore::prepareWriting(Report &report) {
    const EAFResult locked = m_lock.acquire(m_name, report);
    if (locked >= eAF_E_FAILED) {
        return locked;
    }
    if (!m_lock.isHeld()) {
        report.add(Severity::warning, "the store " + m_name +
                                          " can only be read: make its folder and its disk writable, or free some "
                                          "space there, to store values");
        return eAF_S_OK;
    }
    if (faccessat(AT_FDCWD, m_name.c_str(), W_OK, AT_EACCESS) != 0 && codeOf(errno) == eAF_E_WRONG_ACCESS) {
        report.add(Severity::warning,
                   "the store " + m_name + " can only be read: make the file writable to store values");
        return eAF_S_OK;
    }
    m_isReadOnly = false;
    ::unlink(m_new.c_str());
    // A host that was killed between its last rename and the sync leaves names that the next power cut may take back,
    // and a store that finds its values there already would not write them again.
    const Descriptor folder(m_folder, O_RDONLY | O_DIRECTORY);
    const int error = folder.isOpen() ? syncFolder(folder.get()) : errno;
    if (error != 0) {
        report.add(Severity::warning,
                   "the folder of the store " + m_name + " could not be synced (" + std::strerror(error) +
                       "): what a killed host stored last may not outlive a power cut; " + adviceFor(error));
    }
    return eAF_S_OK;
}

EAFResult FileStore::load(Generation &generation, Report &report) const {
    Bytes bytes;
    int error = readFile(generation.file, bytes);
    if (isLostOnDisk(error)) {
        error = readFile(generation.file, bytes); // it may be a passing trouble
    }
    if (error == ENOENT) {
        return eAF_S_OK;
    }
    generation.isThere = true;
    if (isLostOnDisk(error)) {
        generation.isUnreadable = true;
        generation.check.why = std::string("reading it fails: ") + std::strerror(error);
        return eAF_S_OK;
    }
    if (error == notAFile) {
        generation.check.state = StoreState::notAStore;
        generation.check.why = "it is no plain file";
        return eAF_S_OK;
    }
    if (error != 0 && error != tooLarge) {
        const EAFResult code = failed("reading the store " + generation.file, error, report);
        return code == eAF_E_WRONG_ACCESS ? eAF_E_INITIALIZATION_ERROR : code;
    }
    const std::shared_ptr<const Image> image = imageOf(std::move(bytes));
    generation.check = image->check;
    if (generation.check.state == StoreState::whole) {
        generation.image = image;
    } else if (error == tooLarge && generation.check.state == StoreState::damaged) {
        generation.check.why = "it is larger than any store";
    }
    return eAF_S_OK;
}

/// The checks cost more than a look at what they would find again.
std::shared_ptr<const FileStore::Image> FileStore::imageOf(Bytes &&bytes) const {
    for (const std::shared_ptr<const Image> &image : m_images) {
        if (image != nullptr && image->bytes == bytes) {
            return image;
        }
    }
    const StoreCheck check = checkStore(bytes);
    return std::make_shared<const Image>(Image{std::move(bytes), check});
}

/// Refuses what is somebody else's, and what must not be taken for empty.
EAFResult FileStore::refuse(const Generation &last, const Generation &before, Report &report) const {
    for (const Generation *generation : {&last, &before}) {
        if (generation->is(StoreState::newer)) {
            report.add(Severity::error,
                       generation->file + " is left alone: " + generation->check.why + "; use a library that knows it");
            return eAF_E_INVALID_ARGUMENT;
        }
    }
    const bool isLastForeign = !last.isThere || last.is(StoreState::notAStore);
    const bool isBeforeForeign = !before.isThere || before.is(StoreState::notAStore);
    if (isLastForeign && isBeforeForeign && (last.isThere || before.isThere)) {
        const Generation &foreign = last.isThere ? last : before;
        report.add(Severity::error,
                   foreign.file + " is no store (" + foreign.check.why + "): it is left alone, name another file");
        return eAF_E_INVALID_ARGUMENT;
    }
    const bool isAnyWhole = last.is(StoreState::whole) || before.is(StoreState::whole);
    if ((last.isUnreadable || before.isUnreadable) && !isAnyWhole) {
        const Generation &unreadable = last.isUnreadable ? last : before;
        report.add(Severity::error, "the store " + unreadable.file + " can not be read (" + unreadable.check.why +
                                        ") and there is no whole one beside it: " + adviceFor(EIO));
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

/// The newest generation that is whole; an empty one when there is none. @return a failure when it can not be told.
EAFResult FileStore::choose(Choice &choice, Care care, Report &report) {
    Generation last{m_name};
    Generation before{m_before};
    EAFResult result = load(last, report);
    if (result == eAF_S_OK && (care == Care::both || !last.is(StoreState::whole))) {
        result = load(before, report);
    }
    if (result == eAF_S_OK) {
        result = refuse(last, before, report);
    }
    if (result != eAF_S_OK) {
        return result;
    }
    const bool isAnyWhole = last.is(StoreState::whole) || before.is(StoreState::whole);
    for (const Generation *generation : {&last, &before}) {
        if (generation->isThere && generation->check.state != StoreState::whole) {
            const EAFResult aside = setAside(*generation, isAnyWhole ? Severity::warning : Severity::error, report);
            if (aside != eAF_S_OK && !isAnyWhole) {
                return aside;
            }
            choice.isObstructed = choice.isObstructed || aside != eAF_S_OK;
        }
    }
    choice.isLast = last.is(StoreState::whole);
    const bool wasOnBefore = std::exchange(m_isOnBefore, isAnyWhole && !choice.isLast);
    if (isAnyWhole) {
        choice.newest = choice.isLast ? last.image : before.image;
        if (m_isOnBefore && !wasOnBefore) {
            report.add(Severity::warning, "the generation before, " + m_before + ", is taken, because " + m_name +
                                              (last.isThere ? " is damaged: " + last.check.why : " is missing"));
        }
    } else if (last.isThere || before.isThere) {
        report.add(Severity::warning,
                   "no generation of the store " + m_name + " is whole: the start goes on with defaults");
    }
    m_images = {last.image, before.image != nullptr ? before.image : m_images[1]};
    return eAF_S_OK;
}

/// @param severity  of leaving it where it is, when nothing may be written.
EAFResult FileStore::setAside(const Generation &generation, Severity severity, Report &report) const {
    const std::string damaged = "the store " + generation.file + " is damaged (" + generation.check.why + "): ";
    if (m_isReadOnly) {
        report.add(severity, damaged + "its host sets it aside when it starts and can write it");
        return eAF_E_FAILED;
    }
    std::string aside;
    int error = firstFree(m_name + ".damaged-", {}, aside);
    if (error == 0 && std::rename(generation.file.c_str(), aside.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        return failed(damaged + "setting it aside as " + aside, error, report);
    }
    report.add(Severity::warning, damaged + "it was set aside as " + aside);
    return eAF_S_OK;
}

EAFResult FileStore::read(ValueSink &values, Report &report) {
    values.clear();
    if (!m_isOpen) {
        return eAF_E_NOT_INITIALIZED;
    }
    Choice choice;
    const EAFResult chosen = choose(choice, Care::asNeeded, report);
    if (choice.newest != nullptr) {
        readValues(choice.newest->bytes, choice.newest->check, values);
    }
    m_known = choice.id();
    m_isStale = false;
    return chosen;
}

/// What is written must be whole to the next reader.
EAFResult FileStore::checkValues(const ValueViews &values, Report &report) const {
    for (const ValueView &value : values) {
        if (!isPlain(value.type) || value.size != contentSize(value.type, value.noOfElements)) {
            report.add(Severity::error, "the value " + std::string(value.path) + " is not stored in " + m_name + ": " +
                                            std::to_string(value.size) + " bytes are no content of type " +
                                            std::to_string(value.type) + " with " + std::to_string(value.noOfElements) +
                                            " elements");
            return eAF_E_INVALID_ARGUMENT;
        }
    }
    return eAF_S_OK;
}

EAFResult FileStore::writeViews(const ValueViews &values, Report &report) {
    if (!m_isOpen) {
        return eAF_E_NOT_INITIALIZED;
    }
    if (values.empty()) {
        return eAF_S_OK;
    }
    if (m_isReadOnly && m_access == Access::readWrite) {
        const EAFResult prepared = prepareWriting(report); // the disk may have become writable
        if (prepared != eAF_S_OK) {
            return prepared;
        }
    }
    if (m_isReadOnly) {
        report.add(Severity::error,
                   "nothing can be stored in " + m_name + ": make the file, its folder and its disk writable");
        return eAF_E_WRONG_ACCESS;
    }
    const EAFResult checked = checkValues(values, report);
    if (checked != eAF_S_OK) {
        return checked;
    }
    Choice choice;
    const EAFResult chosen = choose(choice, Care::both, report);
    if (chosen != eAF_S_OK || choice.isObstructed) {
        return chosen != eAF_S_OK ? chosen : eAF_E_FAILED; // which setting aside has said
    }
    if (choice.id().number != m_known.number || choice.id().sum != m_known.sum) {
        if (!isThere(m_folder + "/.")) {
            return failed("storing in " + m_name, ENOENT, report);
        }
        m_isStale = true;
        report.add(Severity::warning, "the store " + m_name +
                                          " is not what this process read or stored last: it is read again, so that "
                                          "all values are stored and not the changed ones alone");
        return eAF_E_FAILED;
    }
    return writeMerged(values, choice, report);
}

/// @param last  the generation that the values change.
EAFResult FileStore::writeMerged(const ValueViews &values, const Choice &last, Report &report) {
    const Bytes none;
    Bytes repacked;
    if (last.newest != nullptr && last.newest->check.isSwapped) {
        repacked = packStore(unpackStore(last.newest->bytes).values, last.id().number);
    }
    const Bytes &base = !repacked.empty() ? repacked : last.newest != nullptr ? last.newest->bytes : none;
    const RecordMerge merge(base, values);
    if (!merge.isChanged()) {
        return eAF_S_OK;
    }
    if (merge.size() > largestStore) {
        report.add(Severity::error, "the values of " + m_name + " would take " + std::to_string(merge.size()) +
                                        " bytes, at most " + std::to_string(largestStore) +
                                        " can be kept: store less in this location");
        return eAF_E_FAILED;
    }
    auto next = std::make_shared<Image>();
    next->bytes = merge.pack(last.id().number + 1);
    next->check = describePacked(next->bytes);
    EAFResult written = writeNew(next->bytes, last.isLast ? m_name : m_before, report);
    if (written == eAF_S_OK) {
        written = putInPlace(last.isLast, report);
    }
    if (written == eAF_S_OK) {
        m_known = {next->check.generation, next->check.sum};
        m_images = {std::move(next), last.newest};
    }
    return written;
}

EAFResult FileStore::writeNew(const Bytes &bytes, const std::string &predecessor, Report &report) const {
    const int error = writeFile(m_new, bytes, predecessor);
    if (error == 0) {
        return eAF_S_OK;
    }
    ::unlink(m_new.c_str());
    return failed("writing the store " + m_new, error, report);
}

/// Tidies up before it reports, and takes no memory before that: a report may find none.
/// @param isReplacing  whether a whole newest generation is there, to be kept.
EAFResult FileStore::putInPlace(bool isReplacing, Report &report) const {
    const Descriptor folder(m_folder, O_RDONLY | O_DIRECTORY);
    int error = folder.isOpen() ? 0 : errno;
    bool isKept = false;
    if (error == 0 && isReplacing) {
        error = keepLast(folder.get(), isKept);
    }
    bool isNew = false;
    if (error == 0) {
        isNew = std::rename(m_new.c_str(), m_name.c_str()) == 0;
        error = isNew ? syncFolder(folder.get()) : errno;
    }
    if (error == 0) {
        return eAF_S_OK;
    }
    // What may not be durable must not stay: the next store would find it there and write nothing.
    if (isKept) {
        static_cast<void>(std::rename(m_before.c_str(), m_name.c_str()));
    } else if (isNew) {
        ::unlink(m_name.c_str());
    }
    ::unlink(m_new.c_str());
    return failed("putting the store " + m_name + " in place", error, report);
}

/// Gives the newest generation the name of the one before as well. Its own name is there until the new one takes it,
/// in one rename: there is no moment, and no order in which a power cut may leave the names, without it.
/// @param isKept  receives whether the generation before is the newest one now.
/// @return 0, or the error.
int FileStore::keepLast(int folder, bool &isKept) const {
    if (::unlink(m_before.c_str()) != 0 && errno != ENOENT) {
        return errno;
    }
    isKept = ::link(m_name.c_str(), m_before.c_str()) == 0;
    if (isKept) {
        return 0;
    }
    // Some file systems give a file one name only: it moves, and is found there until the new one is in place.
    isKept = std::rename(m_name.c_str(), m_before.c_str()) == 0;
    return isKept ? syncFolder(folder) : errno;
}

} // namespace storage
