// Counted pointers and chunks.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include "pallion/memory/Chunk.hpp"
#include "pallion/memory/SaveRegistry.hpp"
#include "pallion/values/Quillon.hpp"
#include "ravelin/Cacheable.hpp"

using namespace Ravelin;

namespace {

struct Node : ReferenceBase<Node> {
    static inline std::atomic<int> destroyed{0};
    ~Node() override { destroyed.fetch_add(1); }
    virtual int kind() const { return 0; }
};
struct LeafA : Node {
    int kind() const override { return 1; }
};
struct LeafB : Node {};

using Report = SpeakPtr::Report;

struct Clinging : ReferenceBase<Clinging> {
    StrongPtr<Clinging> keep;
    bool clung = false;
    void unction() override {
        if (clung) return;
        clung = true;
        keep = StrongPtr<Clinging>(this);
    }
};

struct Item : Cacheable {};

struct Offered : ReferenceBase<Offered> {
    int offers = 0;
};
struct OfferCreator : SaveInterfaceCreator<Offered> {
    std::uint32_t addInterfaces(Offered* object) override {
        ++object->offers;
        return 7;
    }
};
struct OtherCreator : SaveInterfaceCreatorBase {};

template <class T>
bool isA(const StrongPtr<ChunkBase>& chunk) {
    return dynamic_cast<T*>(chunk.get()) != nullptr;
}

}  // namespace

TEST(Pointers, CountsFromNewObjectToLastWeakPointer) {
    const int before = Node::destroyed;
    auto* raw = new Node;
    EXPECT_EQ(raw->self.strongCount(), 0);
    EXPECT_EQ(raw->self.weakCount(), 1);
    const auto serial = raw->serial;

    WeakPtr<Node> weak;
    {
        StrongPtr<Node> first(raw);
        EXPECT_EQ(first.strongCount(), 1);
        EXPECT_EQ(first.weakCount(), 2);
        StrongPtr<Node> second(first);
        EXPECT_NE(second.id, first.id);
        EXPECT_EQ(first.strongCount(), 2);
        EXPECT_EQ(first.weakCount(), 3);
        weak = second;
        EXPECT_EQ(weak.get(), raw);
        EXPECT_EQ(first.weakCount(), 4);
    }
    EXPECT_EQ(Node::destroyed, before + 1);
    EXPECT_EQ(weak.get(), nullptr);
    EXPECT_EQ(weak.strongCount(), DestroyedMark);
    EXPECT_EQ(weak.weakCount(), 1);  // the block lives for this pointer alone

    // Serial numbers rise per domain.
    StrongPtr<Node> next(new Node);
    EXPECT_GT(next->serial, serial);
}

TEST(Pointers, CastToWrongTypeKeepsObjectAlive) {
    const int before = Node::destroyed;
    StrongPtr<LeafB, Node> wrong;
    {
        StrongPtr<Node> owner(new LeafA);
        StrongPtr<LeafA, Node> right(owner);
        EXPECT_EQ(right->kind(), 1);
        wrong = owner;
        EXPECT_TRUE(wrong.isNull());
        EXPECT_EQ(owner.strongCount(), 3);  // `wrong` holds the object all the same
    }
    EXPECT_EQ(Node::destroyed, before);
    wrong.reset();
    EXPECT_EQ(Node::destroyed, before + 1);
}

TEST(Pointers, RawAssignmentKeepsIdAndSkipsSameObject) {
    const int before = Node::destroyed;
    auto* a = new Node;
    StrongPtr<Node> p(a);
    const auto id = p.id;
    p = a;
    EXPECT_EQ(p.strongCount(), 1);
    p = new Node;
    EXPECT_EQ(Node::destroyed, before + 1);
    EXPECT_EQ(p.id, id);
    EXPECT_EQ(p.strongCount(), 1);
    p = static_cast<Node*>(nullptr);
    EXPECT_EQ(Node::destroyed, before + 2);
    EXPECT_TRUE(p.isNull());
}

TEST(Pointers, UnctionTakingNewOwnerDrawsWarningAndObjectLives) {
    const auto warnings = SpeakPtr::count(Report::WarningUnctionChange);
    WeakPtr<Clinging> weak;
    {
        StrongPtr<Clinging> owner(new Clinging);
        weak = owner;
    }
    EXPECT_EQ(SpeakPtr::count(Report::WarningUnctionChange) - warnings, 1u);
    ASSERT_FALSE(weak.isNull());
    EXPECT_EQ(weak.strongCount(), 1);
    // Let it go: the second unction does not cling again.
    StrongPtr<Clinging> last(weak);
    weak->keep.reset();
    last.reset();
    EXPECT_TRUE(weak.isNull());
}

TEST(Pointers, UpgradeWhileLastStrongCountGoesCancelsDestruction) {
    const auto cancelled = SpeakPtr::count(Report::DestructionCancelled);
    const int before = Node::destroyed;
    auto* raw = new Node;
    WeakPtr<Node> weak(raw);
    StrongPtr<Node> rescued;
    // The assertion report comes after the count fell to 0 and before the
    // object is marked: an upgrade in that moment must keep the object.
    auto previous = SpeakPtr::setListener([&](const SpeakPtr::Event& event) {
        if (event.report == Report::DestructionAssertion && rescued.isNull()) rescued = weak;
    });
    { StrongPtr<Node> owner(raw); }
    SpeakPtr::setListener(previous);
    EXPECT_EQ(SpeakPtr::count(Report::DestructionCancelled) - cancelled, 1u);
    EXPECT_EQ(Node::destroyed, before);
    EXPECT_EQ(rescued.get(), raw);
    rescued.reset();
    EXPECT_EQ(Node::destroyed, before + 1);
}

TEST(Pointers, SelfConstructionIsReported) {
    const auto reported = SpeakPtr::count(Report::SelfConstruction);
    // Build a pointer from itself, as `StrongPtr<Node> p(p);` would.
    alignas(StrongPtr<Node>) unsigned char storage[sizeof(StrongPtr<Node>)];
    auto* p = reinterpret_cast<StrongPtr<Node>*>(storage);
    new (p) StrongPtr<Node>(*p);
    EXPECT_EQ(SpeakPtr::count(Report::SelfConstruction) - reported, 1u);
    EXPECT_TRUE(p->isNull());
    *p = new Node;  // and it still works
    EXPECT_FALSE(p->isNull());
    p->~StrongPtr<Node>();
}

TEST(Pointers, AutoObjectIsNeverDeletedByPointers) {
    const int before = Node::destroyed;
    WeakPtr<Node> watcher;
    {
        Auto<Node> permanent;
        EXPECT_EQ(permanent.self.strongCount(), 1);
        { StrongPtr<Node> p(&permanent); }
        EXPECT_EQ(Node::destroyed, before);
        EXPECT_EQ(permanent.self.strongCount(), 1);
        watcher = &permanent;
    }  // runs its destructor directly
    EXPECT_EQ(Node::destroyed, before + 1);
    EXPECT_EQ(watcher.strongCount(), DestroyedMark);
}

TEST(Pointers, CacheableDeferredConstructionPerRiseFromZero) {
    const auto pre = Cacheable::PreDestructorCalls.load();
    auto* item = new Item;
    EXPECT_EQ(item->deferredConstructions, 0u);
    StrongPtr<Cacheable> a(item);
    EXPECT_EQ(item->deferredConstructions, 1u);
    StrongPtr<Item, Cacheable> b(a);
    EXPECT_EQ(item->deferredConstructions, 1u);
    b.reset();
    EXPECT_EQ(Cacheable::PreDestructorCalls.load(), pre);
    a.reset();
    EXPECT_EQ(Cacheable::PreDestructorCalls.load(), pre + 1);
}

TEST(Pointers, ThreadsCopyingDroppingAndUpgradingDestroyOnce) {
    const int before = Node::destroyed;
    StrongPtr<Node> owner(new LeafA);
    WeakPtr<Node> weak(owner);
    std::vector<std::thread> threads;
    std::atomic<int> seen{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                StrongPtr<Node> copy(owner);
                WeakPtr<Node> w(copy);
                StrongPtr<Node> up(w);
                if (!up.isNull() && up->kind() == 1) seen.fetch_add(1);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(seen, 80000);
    EXPECT_EQ(owner.strongCount(), 1);
    EXPECT_EQ(owner.weakCount(), 3);  // self, owner, weak
    owner.reset();
    EXPECT_EQ(Node::destroyed, before + 1);
    EXPECT_EQ(weak.weakCount(), 1);
}

TEST(Pointers, SaveRegistryVisitsCreatorsOfTheTypeOnly) {
    SaveRegistryBase::registerCreator(typeid(Offered), StrongPtr<SaveInterfaceCreatorBase>(new OtherCreator));
    SaveRegistryBase::registerCreator(typeid(Offered), StrongPtr<SaveInterfaceCreatorBase>(new OfferCreator));
    Offered object;
    SaveRegistry<Offered>::traverse(&object);
    EXPECT_EQ(object.offers, 1);
    SaveRegistryBase::clearCreators(typeid(Offered));
    SaveRegistry<Offered>::traverse(&object);
    EXPECT_EQ(object.offers, 1);
}

using Quillon::Colour;
using Quillon::FixedArray;
namespace PS = Quillon::PhysicalSpace;

TEST(Chunks, MemsizeForConstructionCloneReserveAndDestruction) {
    const auto base = ChunkBase::TotalMemsize.load();
    {
        StrongPtr<ChunkBase> ints(new Chunk<int>(1));
        EXPECT_EQ(*static_cast<int*>(ints->rawData()), 0);
        StrongPtr<Chunk<double>, ChunkBase> reserved(new Chunk<double>(100, true));  // a reserve adds nothing
        EXPECT_EQ(reserved->elementCount(), 0u);
        EXPECT_EQ(reserved->capacity(), 100u);
        StrongPtr<ChunkBase> none(new Chunk<double>(0));
        EXPECT_EQ(none->rawData(), nullptr);
        auto* points = new Chunk<PS::point>(3);
        StrongPtr<ChunkBase> pointHolder(points);
        (*points)[1][2] = 5.5;
        StrongPtr<Chunk<PS::point>, ChunkBase> copy(pointHolder->clone());
        ASSERT_FALSE(copy.isNull());
        EXPECT_EQ(copy->vector()[1][2], 5.5);
        StrongPtr<ChunkBase> texts(new Chunk<std::string>(2));
        EXPECT_EQ(ChunkBase::TotalMemsize - base, static_cast<std::int64_t>(4 + 2 * 72 + 2 * sizeof(std::string)));

        auto floats = StrongPtr<ChunkBase>(new Chunk<float>(1))->createChunk(5, false);
        EXPECT_EQ(floats->elementType(), typeid(float));
        EXPECT_EQ(floats->elementCount(), 5u);
    }
    EXPECT_EQ(ChunkBase::TotalMemsize.load(), base);
}

// Large chunks must be all zero also on reused memory: with glibc, the third
// round's chunk lies where the second round wrote its ones.
TEST(Chunks, LargeChunksAreZeroAndExactlyAsLargeAsAsked) {
    const std::size_t count = (std::size_t{8} << 20) / sizeof(double) + 3;
    const auto base = ChunkBase::TotalMemsize.load();
    for (int round = 0; round < 3; ++round) {
        StrongPtr<Chunk<double>, ChunkBase> chunk(new Chunk<double>(count));
        EXPECT_EQ(chunk->size(), count);
        EXPECT_EQ(chunk->capacity(), count);
        EXPECT_EQ(ChunkBase::TotalMemsize - base, static_cast<std::int64_t>(count * sizeof(double)));
        EXPECT_EQ(std::count(chunk->begin(), chunk->end(), 0.0), static_cast<std::ptrdiff_t>(count));
        std::fill(chunk->begin(), chunk->end(), 1.0);  // what the next round's chunk may be made from
    }
    StrongPtr<Chunk<PS::point>, ChunkBase> points(new Chunk<PS::point>((std::size_t{5} << 20) / 24));
    EXPECT_TRUE(std::all_of(points->begin(), points->end(), [](const PS::point& p) { return p[0] == 0 && p[2] == 0; }));
}

TEST(Chunks, OversizedCountsThrowTheStandardTextsAndAddNothing) {
    const auto base = ChunkBase::TotalMemsize.load();
    const std::size_t huge = std::vector<double>().max_size() + 1;
    EXPECT_THROW(Chunk<double>{huge}, std::length_error);
    EXPECT_THROW((Chunk<double>{huge, true}), std::length_error);
    EXPECT_EQ(ChunkBase::TotalMemsize.load(), base);
}

TEST(Chunks, CastChainsOfTheCompositeTypes) {
    const StrongPtr<ChunkBase> points(new Chunk<PS::point>(2)), vectors(new Chunk<PS::vector>(2)),
        colours(new Chunk<Colour>(2)), doubles(new Chunk<double>(2));
    using Triple = TypedChunk<FixedArray<double, 3>>;
    using Vector3 = TypedChunk<Quillon::Vector<double, 3>>;
    using Column3 = TypedChunk<Quillon::Column<3, double>>;
    using Rgb3 = TypedChunk<Quillon::Vector<unsigned char, 3>>;
    using RgbRoot = TypedChunkBase<FixedArray<unsigned char, 3>>;
    // A vector is also a plain triple and a column, a colour a vector and a triple of bytes; a point is no vector.
    EXPECT_TRUE(isA<Triple>(points) && isA<Triple>(vectors) && isA<Vector3>(vectors) && isA<Column3>(vectors));
    EXPECT_TRUE(isA<Rgb3>(colours) && isA<RgbRoot>(colours));
    EXPECT_FALSE(isA<Vector3>(points) || isA<Triple>(doubles) || isA<TypedChunk<double>>(points));

    EXPECT_EQ(points->baseType(), typeid(FixedArray<double, 3>));
    EXPECT_EQ(vectors->baseType(), typeid(FixedArray<double, 3>));
    EXPECT_EQ(colours->baseType(), typeid(FixedArray<unsigned char, 3>));
    EXPECT_EQ(doubles->baseType(), typeid(double));
}
