#include "wire/DataRequestHandler.h"
#include "FakeDataHolder.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

namespace
{

using namespace testing;

const std::string kLogged = "ERROR DataCommunicator:treatDataMsg: ";

class DataRequestHandlerTest : public testing::Test
{
protected:
    DataRequestHandlerTest()
    {
        mHolder.dataSets = {{"Table", "Set"}, {"Other", "Set"}};
        mHolder.instances = {{"Set/Table", {"a", "b"}}};
        mHolder.properties = {{"Set/Table", {"x", "y"}}};
        mHolder.refusals = {{"y", FC_BAD_VALUE}};
        mHolder.values = {
            {"Set/Table/a/x", "ax"}, {"Set/Table/a/y", "ay"}, {"Set/Table/b/x", "bx"}};
    }

    /// Asks with `inner` between BODY tags; the result, which the header must carry too.
    Fcodes ask(const std::string& type, const std::string& inner)
    {
        const MessageHeader request{0, FC_OK, 17, type};
        mAnswer.clear();
        const Fcodes result = treatDataRequest(mHolder, request, "<BODY>" + inner + "</BODY>",
                                               mHeader, mAnswer, mSendLimit);
        EXPECT_EQ("RESPONSE", mHeader.Type);
        EXPECT_EQ(17, mHeader.ID);
        EXPECT_EQ(result, mHeader.Fcode);
        return result;
    }

    /// The whole answer, whose length the header must carry.
    void expectAnswer(const std::string& text)
    {
        EXPECT_EQ(text, mAnswer);
        EXPECT_EQ(static_cast<int>(text.size()), mHeader.Size);
    }

    LogCapture mLog;
    FakeDataHolder mHolder;
    MessageHeader mHeader;
    std::string mAnswer;
    std::size_t mSendLimit = 212992;
};

// clang-format off
TEST_F(DataRequestHandlerTest, AGetAnswersTheRowsAndItemsThatItNamesOrAllThatCanBeRead)
{
    // The last item of the last row cannot be read, and its code is the result.
    EXPECT_EQ(FC_NO_SUCH_NAME, ask("GET", "<Table Name=\"Table\" />"));
    expectAnswer("<BODY>\n\t<Table Name=\"Table\" >\n"
                 "\t\t\t<Row ID=\"a\" >\n\t\t\t\t<Item Name=\"x\" Value=\"ax\" />\n"
                 "\t\t\t\t<Item Name=\"y\" Value=\"ay\" />\n\t\t\t</Row>\n"
                 "\t\t\t<Row ID=\"b\" >\n\t\t\t\t<Item Name=\"x\" Value=\"bx\" />\n\t\t\t</Row>\n"
                 "\t</Table>\n</BODY>\n");

    EXPECT_EQ(FC_OK, ask("GET", "<DataSet ID=\"Set\" ><Component Name=\"Table\" >"
                                "<Row ID=\"a\" ><Item Name=\"y\" /><Item Value=\"?\" /><Item Name=\"?\" />"
                                "<Item Name=\"x\" /></Row><Row Name=\"without id\" ></Row>"
                                "<Row ID=\"c\" ><Item /></Row></Component><Table Name=\"passed over\" />"
                                "<Component Name=\"Table\" ><Item Name=\"x\" /></Component></DataSet>"));
    expectAnswer("<BODY>\n\t<DataSet ID=\"Set\" >\n\t\t<Component Name=\"Table\" >\n"
                 "\t\t\t<Row ID=\"a\" >\n\t\t\t\t<Item Name=\"y\" Value=\"ay\" />\n"
                 "\t\t\t\t<Item Name=\"x\" Value=\"ax\" />\n\t\t\t</Row>\n"
                 "\t\t\t<Row ID=\"c\" >\n\t\t\t</Row>\n"
                 "\t\t</Component>\n\t\t<Component Name=\"Table\" >\n"
                 "\t\t\t<Row ID=\"a\" >\n\t\t\t\t<Item Name=\"x\" Value=\"ax\" />\n\t\t\t</Row>\n"
                 "\t\t\t<Row ID=\"b\" >\n\t\t\t\t<Item Name=\"x\" Value=\"bx\" />\n\t\t\t</Row>\n"
                 "\t\t</Component>\n\t</DataSet>\n</BODY>\n");
}

TEST_F(DataRequestHandlerTest, EachTableOfAGetHasItsOwnDataSetAndPropertiesOrNone)
{
    // A table that no data set holds is not read from the one of the table before it.
    mHolder.values["/Nowhere/a/x"] = "from no data set";
    EXPECT_EQ(FC_OK, ask("GET", "<Table Name=\"Table\" ><Row ID=\"b\" ><Item Name=\"x\" /></Row></Table>"
                                "<Table Name=\"Nowhere\" ><Row ID=\"a\" ><Item Name=\"x\" /></Row></Table>"));
    EXPECT_THAT(mAnswer, HasSubstr("Value=\"from no data set\""));

    EXPECT_EQ(FC_NO_SUCH_NAME, ask("GET", "<Table Name=\"Nowhere\" />"));
    expectAnswer("<BODY>\n\t<Table Name=\"Nowhere\" >\n\t</Table>\n</BODY>\n");
    // A component is not looked for.
    EXPECT_EQ(FC_NO_SUCH_NAME, ask("GET", "<Component Name=\"Table\" />"));
    expectAnswer("<BODY>\n\t\t<Component Name=\"Table\" >\n\t\t</Component>\n</BODY>\n");

    mHolder.properties["Set/Other"] = {"z"};
    mHolder.values["Set/Other/c/z"] = "cz";
    EXPECT_EQ(FC_OK, ask("GET", "<Table Name=\"Table\" ><Row ID=\"a\" ></Row></Table>"
                                "<Table Name=\"Other\" ><Row ID=\"c\" ></Row></Table>"));
    EXPECT_THAT(mAnswer, HasSubstr("<Item Name=\"z\" Value=\"cz\" />"));
}

TEST_F(DataRequestHandlerTest, AnErrorStopsProcessingAndLeavesSizeZero)
{
    const std::string nameless = "<Table ID=\"t\" ><Row></Row></Table>";
    const std::pair<std::string, std::string> cases[] = {
        {"<DataSet Name=\"Set\" ></DataSet>", "Not Found ID tags in segment:\n<DataSet Name=\"Set\" ></DataSet>"},
        {"<DataSet ID=\"Set\" ></DataSet>", "Found neither Table nor DataSet tags in:\n<DataSet ID=\"Set\" ></DataSet>"},
        {"", "Found neither Table nor DataSet tags in:\n<BODY></BODY>"},
        {nameless, "Not Found Name tags in:\n" + nameless},
    };
    for (const auto& [inner, line] : cases)
        for (const char* type : {"GET", "SET"}) {
            mLog.clear();
            EXPECT_EQ(FC_BODY_ERROR, ask(type, inner)) << inner;
            EXPECT_EQ(0, mHeader.Size);
            EXPECT_THAT(mLog.entries(), ElementsAre(kLogged + line));
        }
    // What went before stays part of the result.
    EXPECT_EQ(FC_BODY_ERROR | FC_NO_SUCH_NAME, ask("GET", "<Table Name=\"Table\" />" + nameless));
    EXPECT_EQ(0, mHeader.Size);
}
// clang-format on

TEST_F(DataRequestHandlerTest, ARequestWithoutABodyOrOfAnotherTypeIsAcceptedInSilence)
{
    const std::string noBody = "<Table Name=\"Table\" />";
    const MessageHeader set{0, FC_OK, 7, "SET"};
    EXPECT_EQ(FC_OK, treatDataRequest(mHolder, set, noBody, mHeader, mAnswer, mSendLimit));
    EXPECT_THAT(mLog.entries(), ElementsAre(kLogged + "Not Found BODY tags in:\n" + noBody));
    expectAnswer("");
    EXPECT_EQ(FC_OK, ask("PUT", noBody));
    expectAnswer("");
}

// clang-format off
TEST_F(DataRequestHandlerTest, ASetWritesItemByItemAndTheLastResultCounts)
{
    EXPECT_EQ(FC_OK, ask("SET", "<Table Name=\"Table\" ><Row ID=\"a\" ><Item Name=\"y\" Value=\"1\" />"
                                "<Item Name=\"x\" /><Item Name=\"x\" Value=\"\" /></Row></Table>"));
    expectAnswer("");
    EXPECT_THAT(mLog.entries(), ElementsAre(kLogged + "dataHolder->setTextParam() failed: "
                                                      "table=Table row=a col=y val=1 fcode=10020"));
    EXPECT_EQ(FC_BAD_VALUE, ask("SET", "<Component Name=\"Table\" ><Item Name=\"y\" Value=\"2\" /></Component>"));
    EXPECT_THAT(mHolder.calls(), ElementsAre("setTextParam(Set, Table, y, 1, a)", "setTextParam(Set, Table, x, , a)",
                                             "setTextParam(Set, Table, y, 2, )"));
}

TEST_F(DataRequestHandlerTest, ASetOfAComponentThatNoDataSetHoldsStops)
{
    EXPECT_EQ(FC_BODY_ERROR | FC_NO_SUCH_NAME,
              ask("SET", "<Table Name=\"Nowhere\" ><Item Name=\"x\" Value=\"1\" /></Table>"
                         "<Table Name=\"Table\" ><Item Name=\"x\" Value=\"1\" /></Table>"));
    EXPECT_THAT(mLog.entries(), ElementsAre(kLogged + "Not Found a DataSet with comp=Nowhere"));
    EXPECT_EQ(FC_OK, ask("SET", "<DataSet ID=\"Given\" ><Table Name=\"Nowhere\" >"
                                "<Item Name=\"x\" Value=\"1\" /></Table></DataSet>"));
    EXPECT_THAT(mHolder.calls(), ElementsAre("setTextParam(Given, Nowhere, x, 1, )"));
}

TEST_F(DataRequestHandlerTest, ASetLooksForATableAfterTheFirstElement)
{
    const std::string table = "<Table Name=\"Table\" ><Item Name=\"t\" Value=\"1\" /></Table>";
    const std::string component = "<Component Name=\"Other\" ><Item Name=\"c\" Value=\"1\" /></Component>";
    ask("SET", table + component + component + table);
    // 60 bytes into the data set is 60 bytes into the body, before the table just written.
    ask("SET", std::string(60, ' ') + "<DataSet ID=\"Set\" >" + table + "</DataSet>");
    const std::string written = "setTextParam(Set, Table, t, 1, )";
    EXPECT_THAT(mHolder.calls(), ElementsAre("setTextParam(Set, Other, c, 1, )", written, written, written));
}
// clang-format on

TEST_F(DataRequestHandlerTest, AnAnswerThatCannotBeSentIsNotBuiltFurther)
{
    mSendLimit = 100;
    mHolder.instances["Set/Table"].assign(1000, "a");
    EXPECT_EQ(FC_OK, ask("GET", "<Table Name=\"Table\" /><Table Name=\"Table\" />"));
    EXPECT_THAT(mAnswer, SizeIs(AllOf(Gt(mSendLimit), Lt(mSendLimit + 100))));
    // Wherever the limit is reached, also behind an item that cannot be read.
    const std::string items = "<Item Name=\"x\" /><Item Name=\"?\" />";
    for (; mSendLimit < 200; ++mSendLimit)
        EXPECT_EQ(FC_OK, ask("GET", "<Table Name=\"Table\" >" + items + "</Table>")) << mSendLimit;
}

TEST_F(DataRequestHandlerTest, AGetOfMoreThanFourThousandUnreadableItemsIsRefused)
{
    mSendLimit = 1 << 30;
    mHolder.instances["Set/Table"].assign(4000, "a");
    EXPECT_EQ(FC_NO_SUCH_NAME, ask("GET", "<Table Name=\"Table\" ><Item Name=\"?\" /></Table>"));
    mHolder.instances["Set/Table"].assign(4001, "a");
    EXPECT_EQ(FC_UNAVAILABLE | FC_NO_SUCH_NAME,
              ask("GET", "<Table Name=\"Table\" ><Item Name=\"?\" /></Table>"));
    EXPECT_EQ(0, mHeader.Size);
    EXPECT_THAT(mLog.entries(), Contains(HasSubstr("Too many items that cannot be read")));
}

} // namespace
