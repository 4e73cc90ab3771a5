#include "TableFixture.h"

#include <memory>

namespace
{

using DataColumnTest = TableFixture;

TEST_F(DataColumnTest, IsWrittenInOneLineOrWithOneLineForEachValue)
{
    DataColumn sample;
    EXPECT_EQ("\t\t\t<Column Name=\"\" Access=\"RO\" Type=\"str\" Value=\"0\" />\n",
              textOf(sample));
    sample.init("Mode", DataColumn::WO, DataColumn::ENUM);
    sample.addValue(10, "Auto");
    sample.addValue(-1, "Off");
    sample.setDefVal(-1);
    EXPECT_EQ("\t\t\t<Column Name=\"Mode\" Access=\"WO\" Type=\"enum\" Value=\"-1\"  >\n"
              "\t\t\t\t<Value Index=\"-1\" Text=\"Off\" />\n"
              "\t\t\t\t<Value Index=\"10\" Text=\"Auto\" />\n"
              "\t\t\t</Column>\n",
              textOf(sample));

    for (const int code : {0, 4}) {
        sample.init("Mode", code, code);
        EXPECT_NE(std::string::npos, textOf(sample).find("Access=\"RO\" Type=\"str\" Value=\"0\""))
            << code;
    }
}

TEST_F(DataColumnTest, IsReadBackAsItWasWritten)
{
    DataColumn sample;
    const std::unique_ptr<DataColumn> mode(column("Mode", DataColumn::ENUM, 1, {"Off", "On"}));
    EXPECT_EQ(FC_OK, sample.initFromString(textOf(*mode)));
    EXPECT_TRUE(sample.isEqualTo(*mode));
    sample.addValue(1, "Auto");
    EXPECT_FALSE(sample.isEqualTo(*mode));

    EXPECT_EQ(FC_OK, sample.initFromString(
                         R"(<Column Name="y" Access="rw" Type="integer" Value="none" />)"));
    EXPECT_EQ(DataColumn::RW, sample.getAccess()); // an unknown one changes nothing
    EXPECT_EQ(std::pair(int{DataColumn::STR}, 0), std::pair(sample.getType(), sample.getDefVal()));
}

TEST_F(DataColumnTest, ReadingEndsAtAMissingAttributeAndPassesOverIncompleteValues)
{
    DataColumn sample;
    for (const std::string missing : {"Name", "Access", "Type", "Value"}) {
        std::string text = R"(<Column Name="a" Access="RW" Type="int" Value="5" />)";
        text[text.find(missing)] = '_';
        EXPECT_EQ(FC_BODY_ERROR, sample.initFromString(text));
        expectLogged(
            {"ERROR DataColumn:initFromString: Not Found tags " + missing + " in:\n" + text});
    }

    EXPECT_EQ(FC_OK, sample.initFromString(R"(<Column Name="a" Access="RW" Type="enum" Value="2" >
<Value Text="b" /><Value Index="1" /><Value Index="2" Text="c" /></Column>)"));
    expectLogged(
        {"ERROR DataColumn:initFromString: Not Found tags Index in:\n<Value Text=\"b\" />",
         "ERROR DataColumn:initFromString: Not Found tags Text in:\n<Value Index=\"1\" />"});
    std::string value;
    EXPECT_TRUE(sample.getValueText(2, value));
    EXPECT_EQ("c", value);
    EXPECT_FALSE(sample.getValueText(1, value));
}

} // namespace
