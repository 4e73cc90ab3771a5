#include "wire/DataRequestHandler.h"

#include "DbgLine.h"
#include "IDataHolder.h"
#include "MessageHeader.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace
{

constexpr char kUnit[] = "DataCommunicator"; // its lines are the communicator's
constexpr std::size_t npos = std::string::npos;
constexpr std::string_view kTableTag = "Table";

/// Reading items that do not exist adds nothing to an answer, so its length does not bound such
/// work: one request can name thousands of items for thousands of rows.
constexpr int kMaxUnreadableItems = 4000;

// What each row of an answer has.
constexpr std::string_view kRowStart = "\t\t\t<Row ID=\"";
constexpr std::string_view kRowItems = "\" >\n";
constexpr std::string_view kRowEnd = "\t\t\t</Row>\n";
constexpr std::size_t kEmptyRow = kRowStart.size() + kRowItems.size() + kRowEnd.size();

constexpr std::size_t kUsualAnswer = 512; // bytes that hold most answers of one item

/// The part of a request that names a data set, or the whole body where none is named.
struct DataSetPart {
    std::string_view text;
    bool given = false;
    std::string id;
};

bool findDataSetPart(std::string_view body, DataSetPart& part)
{
    std::string_view element;
    if (findSegment(body, 0, "DataSet", element) == npos) {
        part.text = body;
        return true;
    }
    std::string_view id;
    if (findPropertyValue(element, 0, "ID", id) == npos) {
        DBG_LOG(SEV_ERROR) << "treatDataMsg: Not Found ID tags in segment:\n" << element;
        return false;
    }
    part = {element, true, std::string(id)};
    return true;
}

/// "Component" when the text holds one, else "Table", else nothing. The first such element is left
/// in `element`, the position behind it in `end`.
std::string_view findFirstElement(std::string_view text, std::string_view& element,
                                  std::size_t& end)
{
    for (const std::string_view tag : {std::string_view("Component"), kTableTag}) {
        end = findSegment(text, 0, tag, element);
        if (end != npos)
            return tag;
    }
    DBG_LOG(SEV_ERROR) << "treatDataMsg: Found neither Table nor DataSet tags in:\n" << text;
    return {};
}

bool readName(std::string_view element, std::string& name)
{
    std::string_view value;
    if (findPropertyValue(element, 0, "Name", value) == npos) {
        DBG_LOG(SEV_ERROR) << "treatDataMsg: Not Found Name tags in:\n" << element;
        return false;
    }
    name = value;
    return true;
}

/// One GET being answered. The result is that of the last call of the holder.
class GetRequest
{
public:
    GetRequest(IDataHolder& dataHolder, std::string& answer, std::size_t sendLimit)
        : mHolder(dataHolder), mAnswer(answer), mSendLimit(sendLimit)
    {
    }

    /// False when processing stopped at an error; the answer is then incomplete.
    bool run(std::string_view body);
    Fcodes result() const { return mResult; }

private:
    bool addElements(std::string_view tag, std::string_view first, std::size_t end);
    bool addElement(std::string_view element, bool isTable);
    void addInstances(std::string_view element);
    void addRow(const std::string& row, bool itemsNamed);
    void addItem(const std::string& row, const std::string& item);
    bool readItemNames(std::string_view text);
    const std::vector<std::string>& properties();

    bool isLimitReached() const
    {
        return mAnswer.size() > mSendLimit || mUnreadable > kMaxUnreadableItems;
    }
    bool stop(Fcodes reason)
    {
        mResult |= reason;
        return false;
    }

    IDataHolder& mHolder;
    std::string& mAnswer;
    const std::size_t mSendLimit;
    Fcodes mResult = FC_OK;
    int mUnreadable = 0;

    DataSetPart mDataSet;
    std::string mName;                    // of the element being answered
    std::vector<std::string> mItems;      // that the request names
    std::vector<std::string> mProperties; // of the element, asked for once
    Fcodes mPropertiesResult = FC_OK;
    bool mPropertiesKnown = false;
    std::string mValue;
};

bool GetRequest::run(std::string_view body)
{
    mAnswer.reserve(kUsualAnswer);
    mAnswer = "<BODY>\n";
    if (!findDataSetPart(body, mDataSet))
        return stop(FC_BODY_ERROR);
    if (mDataSet.given)
        mAnswer.append("\t<DataSet ID=\"").append(mDataSet.id).append("\" >\n");

    std::string_view element;
    std::size_t end = 0;
    const std::string_view tag = findFirstElement(mDataSet.text, element, end);
    if (tag.empty() || !addElements(tag, element, end))
        return stop(FC_BODY_ERROR);
    if (mUnreadable > kMaxUnreadableItems) {
        DBG_LOG(SEV_ERROR) << "treatDataMsg: Too many items that cannot be read, in:\n" << body;
        return stop(FC_UNAVAILABLE);
    }
    if (mDataSet.given)
        mAnswer.append("\t</DataSet>\n");
    mAnswer.append("</BODY>\n");
    // Reading stopped at the limit: the code of the item that happened to be the last says nothing.
    // The sender refuses the answer for its length.
    if (mAnswer.size() > mSendLimit)
        mResult = FC_OK;
    return true;
}

/// The first element, and those behind its end.
bool GetRequest::addElements(std::string_view tag, std::string_view first, std::size_t end)
{
    SegmentIterator others(mDataSet.text, tag, end);
    std::string_view element = first;
    do
        if (!addElement(element, tag == kTableTag))
            return false;
    while (!isLimitReached() && others.next(element));
    return true;
}

bool GetRequest::addElement(std::string_view element, bool isTable)
{
    if (!readName(element, mName))
        return false;
    // The tabs are the same with and without a data set around the element.
    mAnswer.append(isTable ? "\t<Table Name=\"" : "\t\t<Component Name=\"");
    mAnswer.append(mName).append("\" >\n");
    mPropertiesKnown = false;

    // Only a table is looked for; a component stands in the data set that the request names.
    if (isTable && !mDataSet.given) {
        mDataSet.id.clear();
        mResult = mHolder.findDataSetWithComponent(mDataSet.id, mName);
    }
    SegmentIterator rows(element, "Row");
    std::string_view row;
    std::string_view id;
    if (rows.next(row))
        do
            if (findPropertyValue(row, 0, "ID", id) != npos)
                addRow(std::string(id), readItemNames(row));
        while (!isLimitReached() && rows.next(row));
    else
        addInstances(element);
    mAnswer.append(isTable ? "\t</Table>\n" : "\t\t</Component>\n");
    return true;
}

void GetRequest::addInstances(std::string_view element)
{
    // Not those whose rows no answer has room for.
    const std::size_t room = mSendLimit - std::min(mAnswer.size(), mSendLimit);
    std::vector<std::string> instances;
    mResult = mHolder.listInstances(mDataSet.id, mName, instances, kEmptyRow, room);
    const bool itemsNamed = readItemNames(element);
    for (const std::string& instance : instances) {
        if (isLimitReached())
            break;
        addRow(instance, itemsNamed);
    }
}

void GetRequest::addRow(const std::string& row, bool itemsNamed)
{
    mAnswer.append(kRowStart).append(row).append(kRowItems);
    for (const std::string& item : itemsNamed ? mItems : properties()) {
        if (isLimitReached())
            break;
        addItem(row, item);
    }
    mAnswer.append(kRowEnd);
}

void GetRequest::addItem(const std::string& row, const std::string& item)
{
    mResult = mHolder.getTextParam(mDataSet.id, mName, item, mValue, row);
    if (mResult != FC_OK) {
        ++mUnreadable;
        return;
    }
    mAnswer.append("\t\t\t\t<Item Name=\"").append(item);
    mAnswer.append("\" Value=\"").append(mValue).append("\" />\n");
}

/// True when the text holds items at all, also when none of them has a name.
bool GetRequest::readItemNames(std::string_view text)
{
    mItems.clear();
    SegmentIterator items(text, "Item");
    std::string_view item;
    std::string_view name;
    bool any = false;
    while (items.next(item)) {
        any = true;
        if (findPropertyValue(item, 0, "Name", name) != npos)
            mItems.emplace_back(name);
    }
    return any;
}

const std::vector<std::string>& GetRequest::properties()
{
    if (!mPropertiesKnown) {
        mProperties.clear();
        mPropertiesResult = mHolder.getProperties(mDataSet.id, mName, mProperties);
        mPropertiesKnown = true;
    }
    mResult = mPropertiesResult;
    return mProperties;
}

/// One SET being carried out. The result is that of the last item written.
class SetRequest
{
public:
    explicit SetRequest(IDataHolder& dataHolder) : mHolder(dataHolder) {}

    Fcodes run(std::string_view body);

private:
    bool writeElement(std::string_view element);
    void writeRow(std::string_view row);
    void writeItem(const std::string& row, const std::string& item, const std::string& value);

    IDataHolder& mHolder;
    Fcodes mResult = FC_OK;
    DataSetPart mDataSet;
    std::string mName; // of the element being written
};

Fcodes SetRequest::run(std::string_view body)
{
    if (!findDataSetPart(body, mDataSet))
        return FC_BODY_ERROR;
    std::string_view element;
    std::size_t end = 0;
    if (findFirstElement(mDataSet.text, element, end).empty())
        return FC_BODY_ERROR;

    // Kept on purpose: peers count on a "Table" being next, whatever stood first, and on its being
    // looked for in the body from the number that was the end position in the data set's text.
    SegmentIterator tables(body, kTableTag, end);
    while (writeElement(element))
        if (!tables.next(element))
            break;
    return mResult;
}

bool SetRequest::writeElement(std::string_view element)
{
    if (!readName(element, mName)) {
        mResult |= FC_BODY_ERROR;
        return false;
    }
    if (!mDataSet.given) {
        mDataSet.id.clear();
        const Fcodes findResult = mHolder.findDataSetWithComponent(mDataSet.id, mName);
        if (findResult != FC_OK) {
            DBG_LOG(SEV_ERROR) << "treatDataMsg: Not Found a DataSet with comp=" << mName;
            mResult |= findResult | FC_BODY_ERROR;
            return false;
        }
    }
    SegmentIterator rows(element, "Row");
    std::string_view row;
    bool any = false;
    for (; rows.next(row); any = true)
        writeRow(row);
    if (!any)
        writeRow(element);
    return true;
}

void SetRequest::writeRow(std::string_view row)
{
    std::string_view id;
    findPropertyValue(row, 0, "ID", id);
    const std::string key(id);

    SegmentIterator items(row, "Item");
    std::string_view item;
    std::string_view name;
    std::string_view value;
    while (items.next(item))
        if (findPropertyValue(item, 0, "Name", name) != npos &&
            findPropertyValue(item, 0, "Value", value) != npos)
            writeItem(key, std::string(name), std::string(value));
}

void SetRequest::writeItem(const std::string& row, const std::string& item,
                           const std::string& value)
{
    mResult = mHolder.setTextParam(mDataSet.id, mName, item, value, row);
    if (mResult != FC_OK)
        DBG_LOG(SEV_ERROR) << "treatDataMsg: dataHolder->setTextParam() failed: table=" << mName
                           << " row=" << row << " col=" << item << " val=" << value
                           << " fcode=" << Hex{mResult};
}

} // namespace

Fcodes treatDataRequest(IDataHolder& dataHolder, const MessageHeader& requestHeader,
                        const std::string& requestBody, MessageHeader& responseHeader,
                        std::string& responseBody, std::size_t sendLimit)
{
    Fcodes result = FC_OK;
    bool complete = false;
    std::string_view body;
    if (findSegment(requestBody, 0, "BODY", body) == npos) {
        // Kept on purpose: peers count on a request without a body being accepted in silence.
        DBG_LOG(SEV_ERROR) << "treatDataMsg: Not Found BODY tags in:\n" << requestBody;
    } else if (requestHeader.Type == kTypeGet) {
        GetRequest request(dataHolder, responseBody, sendLimit);
        complete = request.run(body);
        result = request.result();
    } else if (requestHeader.Type == kTypeSet) {
        result = SetRequest(dataHolder).run(body);
    }
    responseHeader.Type = kTypeResponse;
    responseHeader.ID = requestHeader.ID;
    responseHeader.Fcode = result;
    // An incomplete body is not to be read by the requester.
    responseHeader.Size = complete ? static_cast<int>(responseBody.size()) : 0;
    return result;
}
