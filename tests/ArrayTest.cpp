// The typed array model: type objects, slabs, arrays and their registration.
#include <gtest/gtest.h>

#include "pallion/array/MemArray.hpp"
#include "pallion/array/detail/Registration.hpp"

using namespace Tessel;
using Ravelin::Chunk;
using Ravelin::ChunkPtr;
using Ravelin::StrongPtr;
using Array = MemBase::Array;

namespace {

template <class T>
StrongPtr<Chunk<T>, Ravelin::ChunkBase> makeChunk(std::size_t n) {
    return StrongPtr<Chunk<T>, Ravelin::ChunkBase>(new Chunk<T>(n));
}

template <int N, class T>
MemArray<N, T>* as(const Array& array) {
    return dynamic_cast<MemArray<N, T>*>(array.get());
}

// An array of `extents` over `chunk` (over a new chunk where none is given), and the array as its type.
template <int N, class T>
std::pair<Array, MemArray<N, T>*> make(const MultiIndex<N>& extents, const ChunkPtr& chunk = {}) {
    Array array(chunk.isNull() ? new MemArray<N, T>(extents, CreatorPtr())
                               : new MemArray<N, T>(chunk, extents, CreatorPtr()));
    return {array, as<N, T>(array)};
}

// A provider that serves rows of a 3x4 table from memory, and logs its calls.
struct RowProvider : SlabProvider<double> {
    std::vector<double> values = std::vector<double>(12);
    std::vector<std::string> calls;
    std::uint64_t row = 0;
    Iterator<double> sliceSlab(int dimension, std::uint64_t index) override {
        calls.push_back("slice" + std::to_string(dimension) + ":" + std::to_string(index));
        row = index;
        return {};
    }
    double* elementAt(std::uint64_t index) override {
        calls.push_back("at" + std::to_string(index));
        return &values[row * 3 + index];
    }
};

}  // namespace

TEST(ElementTypes, PointAndVectorDifferOnlyWhereTheyShould) {
    const TesselTypeIndex& p = typeIndexOf<Point>();
    const TesselTypeIndex& v = typeIndexOf<TVector>();
    EXPECT_NE(p, v);
    TesselTypeIndex patched = v;
    patched.typeName = p.typeName;
    EXPECT_NE(patched, p);  // kind marks still differ
    patched.kindA = p.kindA;
    patched.kindB = p.kindB;
    EXPECT_EQ(patched, p);

    // Names come from the type itself, through Typename.
    const TesselTypeIndex& c = typeIndexOf<Colour>();
    EXPECT_EQ(c.componentTypeName, "unsigned char");
    EXPECT_EQ(c.domainName, "Quillon::RGB");
    EXPECT_EQ(typeIndexOf<unsigned short>().domainName, "void");
}

TEST(Slabs, AvailabilityTailRuleAndOdometer) {
    HyperslabParameters slab{.length = 10, .offset = 4, .tail = 2};
    EXPECT_EQ(slab.available(), 6u);
    EXPECT_EQ(slab.reachable(), 4u);
    slab.applyTailRule(4);  // P not less than what is reachable: unchanged
    EXPECT_EQ(slab.tail, 2u);
    slab.applyTailRule(3);
    EXPECT_EQ(slab.tail, 3u);

    // The odometer counts with dimension 0 fastest, and wraps to all zero at the end.
    MultiIndex<4> index{1, 0, 0, 0};
    EXPECT_TRUE(next(index, {2, 2, 1, 1}));
    EXPECT_EQ(index, (MultiIndex<4>{0, 1, 0, 0}));
    EXPECT_FALSE(next(index = {1, 1, 0, 0}, {2, 2, 1, 1}));
    EXPECT_EQ(index, (MultiIndex<4>{0, 0, 0, 0}));
}

TEST(Slabs, ArraysWithoutDataAskTheirProvider) {
    RowProvider provider;
    provider.values[2 * 3 + 1] = 7.5;
    MultiArray<2, double> table;
    table.provider = &provider;
    table.extents = {3, 4};
    const auto stops = Ravelin::breakpointCount();
    EXPECT_EQ(*table.elementAddress({1, 2}), 7.5);
    EXPECT_EQ(provider.calls, (std::vector<std::string>{"slice1:2", "at1"}));
    EXPECT_EQ(Ravelin::breakpointCount(), stops + 1);
}

TEST(Arrays, TailAndExtentsAgainstTheChunkLength) {
    auto chunk = makeChunk<float>(10);
    auto [longer, a] = make<1, float>({4}, ChunkPtr(chunk));
    EXPECT_EQ(a->tail, 6u);
    EXPECT_EQ(a->byteSize(), 40u);
    EXPECT_EQ(a->rawData(), chunk->data());

    EXPECT_EQ((make<1, float>({12}, ChunkPtr(chunk)).second->tail), 0u);

    auto ints = makeChunk<int>(5);
    auto [foreign, f] = make<2, float>({2, 3}, ChunkPtr(ints));
    EXPECT_EQ(f->data, nullptr);
    EXPECT_EQ(f->extents, (MultiIndex<2>{2, 3}));
    EXPECT_TRUE(f->typedChunk().isNull());
    EXPECT_EQ(f->firstElement(), 0.0f);  // no storage to read
    EXPECT_EQ(ints.strongCount(), 2);    // the failed cast still holds the chunk
}

TEST(Arrays, ComponentViewsShareMemoryWithTheirSource) {
    auto chunk = makeChunk<Point>(5);
    for (int i = 0; i < 5; ++i) (*chunk)[i] = Quillon::make<Point>(1.0 * i, 10.0 * i, 100.0 * i);
    auto [points, p] = make<1, Point>({5}, ChunkPtr(chunk));

    Array y = p->component(1, CreatorPtr());
    auto* ys = as<1, double>(y);
    ASSERT_NE(ys, nullptr);
    EXPECT_EQ(*ys->elementAddress({2}), 20.0);
    EXPECT_EQ(ys->lastElement(), 40.0);
    *ys->elementAddress({3}) = -1.0;
    EXPECT_EQ((*chunk)[3][1], -1.0);
    EXPECT_TRUE(ys->typedChunk().isNull());
    EXPECT_EQ(ys->byteSize(), 0u);
    EXPECT_TRUE(p->component(3, CreatorPtr()).isNull());
    EXPECT_TRUE(p->component(-1, CreatorPtr()).isNull());

    // The view keeps the chunk alive after its source and the chunk pointer are gone.
    chunk.reset();
    points.reset();
    EXPECT_EQ(ys->lastElement(), 40.0);

    auto colours = makeChunk<Colour>(2);
    (*colours)[1] = Quillon::make<Colour, unsigned char>(7, 8, 9);
    Array blue = make<1, Colour>({2}, ChunkPtr(colours)).second->component(2, CreatorPtr());
    EXPECT_EQ((as<1, unsigned char>(blue)->lastElement()), 9);

    auto doubles = makeChunk<double>(3);
    auto [scalar, d] = make<1, double>({3}, ChunkPtr(doubles));
    EXPECT_TRUE(d->component(1, CreatorPtr()).isNull());
    Array same = d->component(0, CreatorPtr());
    EXPECT_EQ((as<1, double>(same)->typedChunk().get()), doubles.get());
}

TEST(Arrays, SlicesOfRankThreeAndFour) {
    auto [cube, c] = make<3, int>({4, 5, 6});
    for (std::uint64_t i = 0; i < 120; ++i) c->data[i] = static_cast<int>(i);
    Array slice = c->slice(2, CreatorPtr());
    auto* s = as<2, int>(slice);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->offset, 40u);
    EXPECT_EQ(s->reachable(), 20u);
    EXPECT_EQ(*s->elementAddress({1, 2}), 40 + 1 + 4 * 2);
    EXPECT_EQ(s->lastElement(), 59);

    auto [hyper, h] = make<4, int>({2, 3, 4, 5});
    for (std::uint64_t i = 0; i < 120; ++i) h->data[i] = static_cast<int>(i);
    Array h3 = h->slice(4, CreatorPtr());
    auto* s3 = as<3, int>(h3);
    EXPECT_EQ(s3->firstElement(), 96);
    Array h2 = s3->slice(1, CreatorPtr());
    EXPECT_EQ((as<2, int>(h2)->firstElement()), 102);

    EXPECT_TRUE((make<1, int>({3}).second->slice(0, CreatorPtr()).isNull()));
}

TEST(Arrays, CopyRegionMatchesHandComputedRegion) {
    auto [grid, g] = make<2, unsigned short>({4, 3});
    for (int i = 0; i < 12; ++i) g->data[i] = static_cast<unsigned short>(i);
    // Rows 1..2 and columns 1..2: flat indices 5, 6, 9, 10.
    Array region = g->copyRegion(MultiIndex<2>{1, 1}, MultiIndex<2>{2, 2}, CreatorPtr());
    auto* r = as<2, unsigned short>(region);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(std::vector<unsigned short>(r->data, r->data + 4), (std::vector<unsigned short>{5, 6, 9, 10}));
    EXPECT_NE(r->typedChunk().get(), g->typedChunk().get());

    EXPECT_TRUE(g->copyRegion(DynamicSize{1}, DynamicSize{2}, CreatorPtr()).isNull());
    Array viaDynamic = g->copyRegion(DynamicSize{2, 0}, DynamicSize{2, 3}, CreatorPtr());
    EXPECT_EQ((as<2, unsigned short>(viaDynamic)->lastElement()), 3 + 4 * 2);

    EXPECT_EQ(g->dynamicSize().extents[1], 3u);
}

TEST(Arrays, AssignWrapAndCloneRefusals) {
    auto chunk = makeChunk<int>(3);
    (*chunk)[0] = 1;
    auto [array, a] = make<1, int>({3}, ChunkPtr(chunk));

    for (const ChunkPtr& refused : {ChunkPtr(makeChunk<int>(4)), ChunkPtr(makeChunk<float>(3)), ChunkPtr()})
        EXPECT_FALSE(a->assignChunk(refused));
    EXPECT_EQ((*chunk)[0], 1);
    auto source = makeChunk<int>(3);
    (*source)[2] = 9;
    EXPECT_TRUE(a->assignChunk(ChunkPtr(source)));
    EXPECT_EQ((*chunk)[0], 0);
    EXPECT_EQ(a->lastElement(), 9);

    EXPECT_TRUE(a->wrapChunk(ChunkPtr(makeChunk<int>(2)), CreatorPtr()).isNull());
    EXPECT_TRUE(a->wrapChunk(ChunkPtr(), CreatorPtr()).isNull());
    Array wrapped = a->wrapChunk(ChunkPtr(source), CreatorPtr());
    EXPECT_EQ((as<1, int>(wrapped)->rawData()), source->data());

    Array copy = a->clone(CreatorPtr());
    EXPECT_NE(copy->rawData(), a->rawData());
    EXPECT_EQ((as<1, int>(copy)->lastElement()), 9);
    auto [pointArray, pointView] = make<1, Point>({2});
    Array xs = pointView->component(0, CreatorPtr());
    EXPECT_TRUE(xs->clone(CreatorPtr()).isNull());  // a view without typed chunk has nothing to copy
    EXPECT_FALSE(xs->assignChunk(ChunkPtr(makeChunk<double>(2))));
}

TEST(Arrays, ElementTextForEachType) {
    auto text = [](auto value) {
        using T = decltype(value);
        auto chunk = makeChunk<T>(2);
        (*chunk)[0] = value;
        MemArray<1, T> array(ChunkPtr(chunk), {2}, CreatorPtr());
        std::string result = array.elementText(0);
        EXPECT_EQ(array.elementText(2), "");
        return result;
    };
    EXPECT_EQ(text(static_cast<unsigned char>(200)), "200");  // a number, not a character
    EXPECT_EQ(text(4294967295u), "4294967295");
    EXPECT_EQ(text(Quillon::make<Colour, unsigned char>(255, 0, 17)), "{255,0,17}");
}

TEST(Registration, NineTypesRegisteredAtLoadAndCreateByRank) {
    // The library registered its types when it was loaded.
    registerArrayTypes();  // a second run finds everything done
    EXPECT_EQ(MemBase::registerCreatorCalls(), 9u);
    const auto indices = MemBase::registeredTypeIndices();
    ASSERT_EQ(indices.size(), 9u);
    EXPECT_EQ(indices[0], typeIndexOf<Point>());
    EXPECT_EQ(indices[8], typeIndexOf<Colour>());
    EXPECT_TRUE((MemArray<4, Colour>::typeRegistered));
    EXPECT_EQ(TesselTypeBase::rememberedTypes().size(), 9u);  // each type object announced itself once

    const auto before = MemBase::RegisteredTypes.load();
    Array made = MemBase::create(typeIndexOf<float>(), DynamicSize{2, 3, 4});
    ASSERT_FALSE(made.isNull());
    EXPECT_EQ(made->rank(), 3);
    EXPECT_EQ(made->byteSize(), 96u);
    EXPECT_EQ(made->elementText(23), "0.000000");
    EXPECT_EQ(MemBase::RegisteredTypes.load(), before + 1);
    EXPECT_TRUE(MemBase::create(typeIndexOf<float>(), DynamicSize{}).isNull());
    EXPECT_TRUE(MemBase::create(typeIndexOf<float>(), DynamicSize{1, 1, 1, 1, 1}).isNull());

    // Views do not count as registered arrays.
    Array points = MemBase::create(typeIndexOf<Point>(), DynamicSize{4});
    const auto afterPoints = MemBase::RegisteredTypes.load();
    Array view = points->component(0, CreatorPtr());
    EXPECT_EQ(MemBase::RegisteredTypes.load(), afterPoints);
    EXPECT_EQ(points->self().get(), points.get());
}
