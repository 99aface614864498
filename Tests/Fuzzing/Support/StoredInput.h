/// @file
/// Values and store files that a fuzzer's bytes describe, and what the harnesses of stores share.
#pragma once

#include <string>
#include <vector>

#include "FuzzInput.h"
#include "Report.h"
#include "StoredValue.h"

namespace fuzz {

/// Whole values, no two of one path, at most so many.
storage::StoredValues valuesFrom(FuzzInput &input, std::uint32_t most);

/// A path as modules make them, or any bytes.
std::string pathFrom(FuzzInput &input);

/// Sorted by path, which stores do not promise.
storage::StoredValues sorted(storage::StoredValues values);

/// As text, for a finding.
std::string shown(const storage::StoredValues &values);

/// Checks that each value is one that a store may hold.
void checkWhole(const storage::StoredValues &values);

/// What is read and written as it stands in memory, in the order of a machine of the same byte order or of the other.
/// Written apart from the library.
Bytes storeFile(const storage::StoredValues &values, std::uint64_t generation, bool isSwapped);

/// What of a store file is made right again after a fuzzer changed it; each alone leaves a fault to be found.
struct Repair {
    bool header;  ///< Its size and its checksum.
    bool records; ///< Their checksums, as far as their lengths can be followed.
    bool trailer;
};
void repair(Bytes &file, const Repair &what);

/// Overwrites, inserts or removes as the input says.
void damage(Bytes &bytes, FuzzInput &input);

class Messages : public storage::Report {
public:
    void add(storage::Severity severity, const std::string &text) override;
    std::vector<std::string> errors;
    std::vector<std::string> warnings;
};

/// A folder in memory where the machine has one; emptied before each input, removed at the end.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;

    std::string file(const std::string &name) const { return m_path + "/" + name; }
    void clear() const;
    void write(const std::string &name, const Bytes &bytes) const;
    /// @return empty also where there is none.
    Bytes read(const std::string &name) const;
    bool has(const std::string &name) const;
    /// Their names, sorted; lock files left out.
    std::vector<std::string> names() const;

private:
    std::string m_path;
};

} // namespace fuzz
