// Tests of KVXRefCounter: the count starts at 0, intrusive_ptr raises and
// lowers it, and the last release deletes the object through the virtual
// destructor.
#include <kvx/KVXMessage.h>

#include <gtest/gtest.h>

#include <boost/intrusive_ptr.hpp>

namespace {

class Counted : public KVX::KVXRefCounter {
public:
    explicit Counted(int *counter) : deletions(counter) {}
    ~Counted() override { ++*deletions; }

private:
    int *deletions;
};

} // namespace

TEST(KVXRefCounter, CountStartsAtZero) {
    int deletions = 0;
    Counted *object = new Counted(&deletions);
    EXPECT_EQ(0, object->referenceCountValue());
    delete object;
    EXPECT_EQ(1, deletions);
}

TEST(KVXRefCounter, EachPointerTakesOneReference) {
    int deletions = 0;
    boost::intrusive_ptr<Counted> first(new Counted(&deletions));
    EXPECT_EQ(1, first->referenceCountValue());
    {
        boost::intrusive_ptr<Counted> second = first;
        EXPECT_EQ(2, first->referenceCountValue());
        boost::intrusive_ptr<KVX::KVXRefCounter> asBase = first;
        EXPECT_EQ(3, first->referenceCountValue());
    }
    EXPECT_EQ(1, first->referenceCountValue());
    EXPECT_EQ(0, deletions);
}

TEST(KVXRefCounter, LastReleaseDeletesThroughVirtualDestructor) {
    int deletions = 0;
    {
        boost::intrusive_ptr<KVX::KVXRefCounter> base(new Counted(&deletions));
        boost::intrusive_ptr<KVX::KVXRefCounter> other = base;
        other.reset();
        EXPECT_EQ(0, deletions);
    }
    EXPECT_EQ(1, deletions);
}

TEST(KVXRefCounter, ManualAddRefKeepsObjectAlive) {
    int deletions = 0;
    Counted *object = new Counted(&deletions);
    intrusive_ptr_add_ref(object);
    {
        boost::intrusive_ptr<Counted> held(object);
        EXPECT_EQ(2, object->referenceCountValue());
    }
    EXPECT_EQ(0, deletions);
    EXPECT_EQ(1, object->referenceCountValue());
    intrusive_ptr_release(object);
    EXPECT_EQ(1, deletions);
}
