#include "analyze/image/native_object.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/native/shared_objects.h"

namespace bootforge::analyze {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(NativeObjectTest, AnObjectThatIsCutAtAnyByteIsUnloadable) {
  const std::string whole = test::sharedObject("full");
  const std::size_t needed = test::endOfSegments(whole);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    const NativeObject object = readNativeObject(std::string_view(whole).substr(0, size));
    ASSERT_EQ(object.isGood(), size >= needed);
    ASSERT_EQ(object.unloadable.empty(), size >= needed);
    if (!object.isGood()) continue;
    EXPECT_THAT(object.record.provides, ElementsAre("service-up", "extra-up"));
    EXPECT_EQ(object.record.pluginVersion, "2.5");
  }
}

TEST(NativeObjectTest, APointerThatNoRelocationTouchesLeadsNowhere) {
  const NativeObject object = readNativeObject(test::sharedObject("wild_version"));
  EXPECT_THAT(object.unloadable, IsEmpty());
  EXPECT_THAT(object.recordFaults, ElementsAre(native::kWildPointer));
}

}  // namespace
}  // namespace bootforge::analyze
