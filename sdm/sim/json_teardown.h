// Taking a JSON document apart without allocating.  The JSON library's
// destructor of a non-empty array or object allocates a work list; when that
// fails inside a destructor the process terminates.  Emptying the tree from
// the leaves up first leaves the destructors nothing to allocate for.
#pragma once

#include <nlohmann/json.hpp>

namespace vtsdm {

// Empties `j` bottom-up; true when it is fully emptied.  Past kDepth levels
// (no file of ours nests that deep) the rest is left to the destructor.
inline bool Dismantle(nlohmann::json &j, int depth = 0) noexcept {
    constexpr int kDepth = 64;
    if (!j.is_array() && !j.is_object()) return true;
    if (depth >= kDepth) return false;
    bool empty = true;
    for (auto &child : j) empty = Dismantle(child, depth + 1) && empty;
    if (empty) j.clear();
    return empty;
}

// Declared after a document, empties it before its destructor runs, on
// every path out of the scope.
class DismantleOnExit {
public:
    explicit DismantleOnExit(nlohmann::json &j) : j_(j) {}
    ~DismantleOnExit() { Dismantle(j_); }
    DismantleOnExit(const DismantleOnExit &) = delete;
    DismantleOnExit &operator=(const DismantleOnExit &) = delete;

private:
    nlohmann::json &j_;
};

}  // namespace vtsdm
