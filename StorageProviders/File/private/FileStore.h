/// @file
/// The values of one location in a plain file with the generation before it beside it; README.md tells the format.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "FileFormat.h"
#include "StoreLock.h"
#include "StoreNames.h"
#include "VariableStore.h"

namespace storage {

class FileStore : public VariableStore {
public:
    /// A store replaces its file by renaming: a link is followed once, here, or it would be what is replaced. Where
    /// that fails each open says so.
    explicit FileStore(const std::string &file) : FileStore(resolveName(file)) {}
    explicit FileStore(ResolvedName name);

    EAFResult open(Access access, Report &report) override;
    using VariableStore::read;
    EAFResult read(ValueSink &values, Report &report) override;
    /// @retval eAF_E_FAILED  also: the newest generation is not the one that was read or written last. A part of the
    ///                       values makes no store: read again, and write what is missing too.
    EAFResult writeViews(const ValueViews &values, Report &report) override;
    bool isStale() const override { return m_isStale; }
    const std::string &name() const override { return m_name; }

private:
    struct Image;
    struct Generation;
    struct Choice;
    /// None has the number 0.
    struct GenerationId {
        std::uint64_t number = 0;
        std::uint32_t sum = 0;
    };
    enum class Care {
        asNeeded, ///< The generation before is looked at when the newest does not serve.
        both      ///< Both are looked at, and what does not hold is set aside, so that no store writes over it.
    };

    EAFResult prepareWriting(Report &report);
    EAFResult load(Generation &generation, Report &report) const;
    std::shared_ptr<const Image> imageOf(Bytes &&bytes) const;
    EAFResult choose(Choice &choice, Care care, Report &report);
    EAFResult refuse(const Generation &last, const Generation &before, Report &report) const;
    EAFResult setAside(const Generation &generation, Severity severity, Report &report) const;
    EAFResult checkValues(const ValueViews &values, Report &report) const;
    EAFResult writeMerged(const ValueViews &values, const Choice &last, Report &report);
    EAFResult writeNew(const Bytes &bytes, const std::string &predecessor, Report &report) const;
    EAFResult putInPlace(bool isReplacing, Report &report) const;
    int keepLast(int folder, bool &isKept) const;
    EAFResult failed(const std::string &doing, int error, Report &report) const;

    std::string m_name;
    std::string m_problem; ///< Why the name could not be resolved; empty when it could.
    std::string m_before;  ///< The generation before.
    std::string m_new;     ///< The one in the making; no reader looks at it.
    std::string m_folder;
    StoreLock m_lock;
    Access m_access = Access::readOnly;
    bool m_isOpen = false;
    bool m_isReadOnly = true;
    bool m_isStale = false;
    GenerationId m_known; ///< That was read or written last.
    /// Whole generations as they were found or made last. A file that is one of them, byte for byte, is whole too.
    std::array<std::shared_ptr<const Image>, 2> m_images;
    bool m_isOnBefore = false; ///< It has been said that the generation before serves.
};

} // namespace storage
