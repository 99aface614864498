/// @file
/// The values of one location in a plain file with the generation before it beside it; README.md tells the format.
#pragma once

#include <string>

#include "FileFormat.h"
#include "StoreLock.h"
#include "VariableStore.h"

namespace storage {

class FileStore : public VariableStore {
public:
    explicit FileStore(std::string file);

    EAFResult open(Access access, Report &report) override;
    EAFResult read(StoredValues &values, Report &report) override;
    EAFResult write(const StoredValues &values, Report &report) override;
    const std::string &name() const override { return m_name; }

private:
    struct Generation;
    EAFResult load(Generation &generation, Report &report) const;
    EAFResult choose(UnpackedStore &newest, Report &report);
    EAFResult setAside(const std::string &file, const std::string &why, Report &report) const;
    EAFResult writeNew(const Bytes &bytes, Report &report) const;
    EAFResult putInPlace(Report &report) const;
    EAFResult failed(const std::string &doing, int error, Report &report) const;

    std::string m_name;
    std::string m_before; ///< The generation before.
    std::string m_new;    ///< The one in the making; no reader looks at it.
    StoreLock m_lock;
    bool m_isOpen = false;
    bool m_isReadOnly = false;
    bool m_isInTheWay = false; ///< A damaged file that could not be set aside.
};

} // namespace storage
