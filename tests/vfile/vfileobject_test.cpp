// The completion object: the error that the caller of an operation gets.
#include "vfile/vfileobject.h"

#include <memory>
#include <new>
#include <stdexcept>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

using Done = std::shared_ptr<CIO::CIOObject>;

TEST(RunSync, GivesTheFirstErrorText) {
    EXPECT_EQ(CIO::runSync([](Done const&) {}), KString());
    EXPECT_EQ(CIO::runSync([](Done const& done) {
                  done->setError("first");
                  done->setError(KString("second"));
                  done->setOutOfMemory();
              }),
              KString("first"));
}

TEST(RunSync, ThrowsWhenMemoryRanOut) {
    auto const run_out = [](Done const& done) {
        done->setOutOfMemory();
        done->setError("too late");
        EXPECT_TRUE(done->outOfMemory());
        ASSERT_NE(done->error(), nullptr);
        EXPECT_TRUE(done->error()->empty());
    };
    EXPECT_THROW(CIO::runSync(run_out), std::bad_alloc);
}

TEST(RunSync, ThrowsWhatTheStartThrewOnceNobodyHoldsTheCompletion) {
    auto const fail = [&](Done const& done) {
        std::weak_ptr<CIO::CIOObject> const watched = done;
        EXPECT_EQ(watched.use_count(), 1);
        throw std::runtime_error("fault");
    };
    EXPECT_THROW(CIO::runSync(fail), std::runtime_error);
}

// Wraps the caller's completion object, like a transfer through a pool buffer.
class Between : public CIO::CIOObject {
  public:
    explicit Between(Done outer_done) : outer(std::move(outer_done)) {}
    void complete() override { handErrorTo(*outer); }

  private:
    Done outer;
};

TEST(CIOObject, HandsOverWhatWentWrong) {
    auto const through = [](auto const& go_wrong) {
        return [&](Done const& done) { go_wrong(*CIO::makeCompletion<Between>(done)); };
    };
    EXPECT_EQ(CIO::runSync(through([](CIO::CIOObject&) {})), KString());
    EXPECT_EQ(CIO::runSync(through([](CIO::CIOObject& inner) { inner.setError("inner"); })), KString("inner"));
    EXPECT_THROW(CIO::runSync(through([](CIO::CIOObject& inner) { inner.setOutOfMemory(); })), std::bad_alloc);
}

}  // namespace
}  // namespace KelvonClip
