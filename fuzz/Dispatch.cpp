// A whole datagram goes to a communicator with a real holder, which has a store and a table.

#include "DataHolder.h"
#include "DataSet.h"
#include "FuzzTarget.h"

#include <fstream>
#include <memory>

namespace
{

constexpr char kDocument[] = R"({"dataset": "D", "components": {
    "Fans": {"properties": {"Speed": {"type": "integer", "default": 1},
                            "Mode": {"type": "enum", "values": ["Auto", "Fixed"]}},
             "instances": {"left": {"Speed": 900, "Mode": "Auto"}, "right": {"Speed": 7}}},
    "Probes": {"properties": {"On": {"type": "boolean"}}, "instances": [{"On": true}, {}]},
    "Unit": {"properties": {"Name": {"type": "string"}}, "instance": {"Name": "u"}}}})";

class Holder : public DataHolder
{
public:
    Holder() { init("tFuzz"); }

    Fcodes execute(const std::string& command, std::string& result) override
    {
        result = command;
        return doExecute(command, result);
    }
    Fcodes handle(MessageEvent* event) override
    {
        const std::unique_ptr<MessageEvent> taken(event);
        return FC_OK;
    }
    Fcodes doHandle(MessageEvent* /*event*/) override { return FC_OK; }

    /// Every input meets the same data.
    void reset()
    {
        loadDataSet("D", "/tmp/D.json");
        rollback();
        mTables = std::make_unique<DataSet>("Tables");
        mTables->initFromString(
            "<DataSet ID=\"Tables\"><Table Name=\"T\"><Columns>"
            "<Column Name=\"Limit\" Access=\"RW\" Type=\"int\" Value=\"4\" /></Columns>"
            "<Row ID=\"1\" ></Row><Row ID=\"3\" ></Row></Table></DataSet>");
        addDataSet("Tables", mTables.get());
    }

private:
    std::unique_ptr<DataSet> mTables;
};

Holder& freshHolder()
{
    static Holder* const holder = [] {
        std::ofstream("/tmp/D.json") << kDocument;
        return new Holder; // its worker never ends
    }();
    holder->reset();
    return *holder;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = textOf(data, size);
    MessageHeader header;
    if (header.initFromString(text) != FC_OK)
        return 0;
    std::string body;
    getSegment(text, 0, "BODY", body);

    Holder& holder = freshHolder();
    DataCommunicator communicator;
    communicator.setDataHolder(&holder);
    communicator.treatEventMsg(header, body);
    MessageHeader responseHeader;
    std::string responseBody;
    communicator.treatMsg(header, body, responseHeader, responseBody);
    require(header.Type != "GET" || !holder.isChanged(), "a GET leaves nothing pending", text);
    communicator.treatDataMsg(header, body, responseHeader, responseBody);
    communicator.treatCommandMsg(header, body, responseHeader, responseBody);

    std::string printed;
    MessageHeader again;
    require(again.initFromString(responseHeader.toString(printed)) == FC_OK,
            "the header of the answer can be read", text);
    holder.commit();
    holder.acceptChanges();

    DataCommunicator withoutHolder;
    withoutHolder.treatMsg(header, body, responseHeader, responseBody);
    withoutHolder.treatEventMsg(header, body);
    return 0;
}
