// Kiv::Alloc against the heaps a user would pick instead. Built once per peer (ALLOC_PEER), because
// jemalloc, tcmalloc and mimalloc replace malloc itself when linked: the plain build measures Kiv,
// glibc and PoolBlockAlloc, every other build measures its peer alone.
#include "Alloc.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <vector>

#define ALLOC_PEER_NONE 0
#define ALLOC_PEER_MIMALLOC 1
#define ALLOC_PEER_JEMALLOC 2
#define ALLOC_PEER_TCMALLOC 3
#ifndef ALLOC_PEER
#define ALLOC_PEER ALLOC_PEER_NONE
#endif

#if ALLOC_PEER == ALLOC_PEER_MIMALLOC
#include <mimalloc.h>
#elif ALLOC_PEER == ALLOC_PEER_JEMALLOC
#include <jemalloc/jemalloc.h>
#elif ALLOC_PEER == ALLOC_PEER_TCMALLOC
#include <gperftools/tcmalloc.h>
#endif

namespace
{
struct Kiv
{
    static void * New(size_t size) { return ::Kiv::Alloc::New(static_cast<unsigned int>(size)); }
    static void Delete(void * p) { ::Kiv::Alloc::Delete(p); }
};
struct Glibc
{
    static void * New(size_t size) { return std::malloc(size); }
    static void Delete(void * p) { std::free(p); }
};
#if ALLOC_PEER == ALLOC_PEER_MIMALLOC
struct Peer
{
    static void * New(size_t size) { return mi_malloc(size); }
    static void Delete(void * p) { mi_free(p); }
};
const char * const peerName = "mimalloc";
#elif ALLOC_PEER == ALLOC_PEER_JEMALLOC
struct Peer
{
    static void * New(size_t size) { return mallocx(size, 0); }
    static void Delete(void * p) { dallocx(p, 0); }
};
const char * const peerName = "jemalloc";
#elif ALLOC_PEER == ALLOC_PEER_TCMALLOC
struct Peer
{
    static void * New(size_t size) { return tc_malloc(size); }
    static void Delete(void * p) { tc_free(p); }
};
const char * const peerName = "tcmalloc";
#endif

template <class Heap>
void Pairs(benchmark::State & state)
{
    size_t size = static_cast<size_t>(state.range(0));
    for (auto _ : state)
    {
        void * p = Heap::New(size);
        benchmark::DoNotOptimize(p);
        Heap::Delete(p);
    }
}

// 10,000 live blocks of random sizes 1 to 1012: each step frees one at random and allocates a new one
// in its place. The random choices are drawn before timing.
template <class Heap>
void Random(benchmark::State & state)
{
    constexpr size_t live = 10000, steps = 1 << 16;
    std::mt19937 random(1234u + static_cast<unsigned>(state.thread_index()));
    std::uniform_int_distribution<size_t> sizes(1, 1012), slots(0, live - 1);
    std::vector<size_t> size(steps), slot(steps);
    for (size_t i = 0; i < steps; ++i)
    {
        size[i] = sizes(random);
        slot[i] = slots(random);
    }
    std::vector<void *> blocks(live);
    for (size_t i = 0; i < live; ++i)
        blocks[i] = Heap::New(size[i]);
    size_t step = 0;
    for (auto _ : state)
    {
        size_t i = step++ & (steps - 1);
        Heap::Delete(blocks[slot[i]]);
        blocks[slot[i]] = Heap::New(size[i]);
        benchmark::DoNotOptimize(blocks[slot[i]]);
    }
    for (void * p : blocks)
        Heap::Delete(p);
}

template <class Heap>
void RegisterAlloc(const char * impl)
{
    for (int size : {16, 24, 32, 64, 256})
        benchmark::RegisterBenchmark(("Alloc/pairs-" + std::to_string(size) + ":" + impl).c_str(),
                                     Pairs<Heap>)
            ->Arg(size);
    benchmark::RegisterBenchmark((std::string("Alloc/random:") + impl).c_str(), Random<Heap>);
    benchmark::RegisterBenchmark((std::string("Alloc/random-2threads:") + impl).c_str(), Random<Heap>)
        ->Threads(2)
        ->UseRealTime();
}

#if ALLOC_PEER == ALLOC_PEER_NONE
struct Node
{
    Node * next;
    uint64_t value;
};

// A list of 1,000 16-byte nodes built and torn down: the configuration tree's use of its pool.
template <class Make, class Drop>
void NodeChurn(benchmark::State & state, Make make, Drop drop)
{
    for (auto _ : state)
    {
        Node * head = nullptr;
        for (int i = 0; i < 1000; ++i)
            head = make(head);
        while (head)
        {
            Node * next = head->next;
            drop(head);
            head = next;
        }
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}

void PoolNodes(benchmark::State & state)
{
    ::Kiv::PoolBlockAlloc pool(sizeof(Node), 512, 4);
    NodeChurn(
        state,
        [&](Node * next) {
            return new (pool.Alloc()) Node{next, 1};
        },
        [&](Node * node) { pool.Free(node); });
}

void NewDeleteNodes(benchmark::State & state)
{
    NodeChurn(
        state,
        [](Node * next) {
            return new Node{next, 1};
        },
        [](Node * node) { delete node; });
}
BENCHMARK(PoolNodes)->Name("Pool/nodes-16:Kiv");
BENCHMARK(NewDeleteNodes)->Name("Pool/nodes-16:new-delete");
#endif

const bool registered = []
{
#if ALLOC_PEER == ALLOC_PEER_NONE
    RegisterAlloc<Kiv>("Kiv");
    RegisterAlloc<Glibc>("glibc");
#else
    RegisterAlloc<Peer>(peerName);
#endif
    return true;
}();
} // namespace
