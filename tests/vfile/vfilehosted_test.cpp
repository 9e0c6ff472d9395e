// vfilehosted: a layer that changes nothing behaves like its host.
#include "vfile/vfilehosted.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "support/memory_file.h"

namespace KelvonClip {
namespace {

using test::MemoryFile;

class PlainLayer : public VFileHosted {
  public:
    explicit PlainLayer(std::shared_ptr<VFileObject> file) : VFileHosted(std::move(file)) {}
};

TEST(VFileHosted, ALayerThatChangesNothingPassesAllToItsHost) {
    auto const memory = std::make_shared<MemoryFile>("below");
    auto const layer = std::make_shared<PlainLayer>(memory);
    EXPECT_EQ(layer->name(), KString("below"));
    EXPECT_EQ(layer->length(), 0u);

    layer->allocate(0, 100);
    EXPECT_EQ(memory->allocatedFrom(40), 60u);
    EXPECT_EQ(layer->allocatedFrom(40), 60u);
    EXPECT_EQ(layer->length(), 100u);
    layer->releaseAllocation();
    EXPECT_EQ(memory->allocatedFrom(0), 0u);

    EXPECT_EQ(layer->writeSync(3, 5, "field"), KString());
    std::string read(5, ' ');
    EXPECT_EQ(memory->readSync(3, 5, read.data()), KString());
    EXPECT_EQ(read, "field");
    read.assign(5, ' ');
    EXPECT_EQ(layer->readSync(3, 5, read.data()), KString());
    EXPECT_EQ(read, "field");
    EXPECT_EQ(layer->length(), 8u);
    EXPECT_EQ(layer->readSync(4, 5, read.data()), KString("Read failed"));
}

}  // namespace
}  // namespace KelvonClip
