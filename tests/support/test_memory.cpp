#include "test_memory.h"

#include <cstdlib>
#include <mutex>
#include <set>

namespace codecutil_test {
namespace {

struct State {
    int calls = 0;
    int fail_at = 0;
    int allocations = 0;
    int frees = 0;
    std::set<void*> live;
};
State g;

bool should_fail() { return ++g.calls == g.fail_at; }

void* t_malloc(size_t n) {
    if (should_fail()) return nullptr;
    void* p = std::malloc(n == 0 ? 1 : n);
    ++g.allocations;
    g.live.insert(p);
    return p;
}
void* t_realloc(void* mem, size_t n) {
    if (should_fail()) return nullptr;
    void* p = std::realloc(mem, n == 0 ? 1 : n);
    if (mem == nullptr) ++g.allocations;
    g.live.erase(mem);
    g.live.insert(p);
    return p;
}
void t_free(void* mem) {
    if (mem == nullptr) return;
    ++g.frees;
    g.live.erase(mem);
    std::free(mem);
}
void* t_calloc(size_t c, size_t n) {
    if (should_fail()) return nullptr;
    void* p = std::calloc(c == 0 ? 1 : c, n == 0 ? 1 : n);
    ++g.allocations;
    g.live.insert(p);
    return p;
}

}  // namespace

CountingMemory::CountingMemory()
    : table_{t_malloc, t_realloc, t_free, t_calloc, nullptr, nullptr, nullptr} {
    g = State{};
}
CountingMemory::~CountingMemory() = default;
void CountingMemory::fail_at(int n) {
    g.calls = 0;
    g.fail_at = n;
}
int CountingMemory::allocations() const { return g.allocations; }
int CountingMemory::frees() const { return g.frees; }
int CountingMemory::live() const { return static_cast<int>(g.live.size()); }

}  // namespace codecutil_test
