/// @file
/// A store that answers what a test tells it, and notes what it was asked.
#pragma once

#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "StorageProvider.h"

namespace test {

/// What a store keeps, and what it is to answer. It outlives the store.
struct Disk {
    std::map<std::string, storage::StoredValue> values;

    EAFResult openAnswer = eAF_S_OK;
    EAFResult readAnswer = eAF_S_OK;
    EAFResult writeAnswer = eAF_S_OK;
    bool takesFailedWrites = false; ///< As a disk does whose last sync fails.
    bool isOutOfMemory = false;     ///< Each operation throws.
    bool wasSetAside = false;       ///< The next read finds nothing and says that it set a damaged store aside.

    bool isStale = false; ///< As after another location set the shared file aside; until the next read.

    int opens = 0;
    int reads = 0;
    int writes = 0;
    std::vector<std::string> written; ///< Paths of the last write, in its order.
};

class ScriptedStore : public storage::VariableStore {
public:
    ScriptedStore(std::string name, std::shared_ptr<Disk> disk) : m_name(std::move(name)), m_disk(std::move(disk)) {}

    EAFResult open(storage::Access access, storage::Report &report) override {
        ++m_disk->opens;
        if (access != storage::Access::readWrite) {
            return eAF_E_NOT_IMPLEMENTED;
        }
        return answer(m_disk->openAnswer, "opened", report);
    }

    EAFResult read(storage::ValueSink &values, storage::Report &report) override {
        ++m_disk->reads;
        values.clear();
        m_disk->isStale = false;
        if (m_disk->wasSetAside) {
            m_disk->wasSetAside = false;
            m_disk->values.clear();
            report.add(storage::Severity::warning, m_name + " is damaged: it was set aside");
        }
        const EAFResult result = answer(m_disk->readAnswer, "read", report);
        if (result < eAF_E_FAILED) {
            for (const auto &[path, value] : m_disk->values) {
                values.add(value);
            }
        }
        return result;
    }

    EAFResult writeViews(const storage::ValueViews &values, storage::Report &report) override {
        ++m_disk->writes;
        const EAFResult result = answer(m_disk->writeAnswer, "written", report);
        std::vector<std::string> paths;
        auto merged = m_disk->values; // all or none, whatever runs out of memory here
        for (const storage::ValueView &value : values) {
            const std::string &path = paths.emplace_back(value.path);
            merged[path] = {path, value.type, value.noOfElements, {value.content, value.content + value.size}};
        }
        m_disk->written.swap(paths);
        if (result < eAF_E_FAILED || m_disk->takesFailedWrites) {
            m_disk->values.swap(merged);
        }
        return result;
    }

    bool isStale() const override { return m_disk->isStale; }
    const std::string &name() const override { return m_name; }

private:
    EAFResult answer(EAFResult result, const char *what, storage::Report &report) const {
        if (m_disk->isOutOfMemory) {
            throw std::bad_alloc();
        }
        if (result >= eAF_E_FAILED) {
            report.add(storage::Severity::error, m_name + " could not be " + what + ": mend it");
        }
        return result;
    }

    std::string m_name;
    std::shared_ptr<Disk> m_disk;
};

} // namespace test
