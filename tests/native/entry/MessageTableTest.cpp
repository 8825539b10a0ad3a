// The table the simulated event log renders with is generated from the same
// message source as the executable's message table; it must hold the
// catalogue's texts exactly.
#include "Catalogue.h"
#include "SimTest.h"

namespace hf::test {
namespace {

TEST(MessageTable, HoldsEveryCatalogueTextExactly)
{
    for (auto const& entry : kCatalogue) {
        EXPECT_EQ(U8(sim::MessageTableText(entry.id)), U8(entry.text)) << "message " << entry.id;
    }
    EXPECT_TRUE(sim::MessageTableText(61).empty());
    EXPECT_TRUE(sim::MessageTableText(0).empty());
}

}  // namespace
}  // namespace hf::test
