#include "CutDisk.h"

#include <algorithm>

namespace test {

namespace {

constexpr std::size_t nothing = SIZE_MAX; ///< A name's file when it leads to none.
constexpr std::size_t sector = 512;

void lead(std::map<std::string, std::size_t> &names, const std::string &name, std::size_t file) {
    if (file == nothing) {
        names.erase(name);
    } else {
        names[name] = file;
    }
}

bool isHeads(std::mt19937 &random) {
    return random() % 2 == 0;
}

} // namespace

CutDisk::CutDisk(const TemporaryFolder::Files &files) {
    for (const auto &[name, bytes] : files) {
        m_names[name] = m_files.size();
        m_files.push_back({bytes, bytes});
    }
    m_durableNames = m_names;
}

void CutDisk::perform(const Operation &operation) {
    for (const Step &step : operation) {
        lead(m_names, step.name, step.file);
    }
    m_pending.push_back(operation);
}

void CutDisk::apply(const Change &change) {
    switch (change.kind) {
    case Change::create:
        m_files.emplace_back();
        perform({{change.file, m_files.size() - 1}});
        break;
    case Change::write: {
        std::string &bytes = m_files[m_names.at(change.file)].bytes;
        const auto offset = static_cast<std::size_t>(change.offset);
        bytes.resize(std::max(bytes.size(), offset + change.other.size()));
        bytes.replace(offset, change.other.size(), change.other);
        break;
    }
    case Change::syncFile: {
        File &file = m_files[m_names.at(change.file)];
        file.durable = file.bytes;
        break;
    }
    case Change::rename:
        // Of two names of one file a rename makes nothing.
        if (m_names.count(change.other) == 0 || m_names.at(change.other) != m_names.at(change.file)) {
            perform({{change.other, m_names.at(change.file)}, {change.file, nothing}});
        }
        break;
    case Change::link:
        perform({{change.other, m_names.at(change.file)}});
        break;
    case Change::unlink:
        perform({{change.file, nothing}});
        break;
    case Change::syncFolder:
        m_durableNames = m_names;
        m_pending.clear();
        break;
    }
}

std::string CutDisk::tornContent(const File &file, std::mt19937 &random) {
    if (file.bytes == file.durable) {
        return file.bytes;
    }
    if (isHeads(random)) {
        return isHeads(random) ? file.bytes : file.durable;
    }
    const std::size_t longest = std::max(file.bytes.size(), file.durable.size());
    std::string content(isHeads(random) ? file.bytes.size() : random() % (longest + 1), '\0');
    for (std::size_t at = 0; at < content.size(); at += sector) {
        const std::string &source = isHeads(random) ? file.bytes : file.durable;
        for (std::size_t i = at; i < std::min({at + sector, content.size(), source.size()}); ++i) {
            content[i] = source[i];
        }
    }
    return content;
}

TemporaryFolder::Files CutDisk::afterPowerCut(Names promise, std::mt19937 &random) const {
    std::map<std::string, std::size_t> names = m_durableNames;
    for (const Operation &operation : m_pending) {
        const bool isDone = isHeads(random);
        for (const Step &step : operation) {
            if (promise == Names::anyOperation ? isDone : isHeads(random)) {
                lead(names, step.name, step.file);
            }
        }
    }
    TemporaryFolder::Files found;
    for (const auto &[name, file] : names) {
        found[name] = tornContent(m_files[file], random);
    }
    return found;
}

} // namespace test
