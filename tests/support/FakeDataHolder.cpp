#include "FakeDataHolder.h"

#include "ChildProcess.h"
#include "MessageEvent.h"

#include <algorithm>
#include <memory>
#include <sstream>

namespace
{

/// The names under `key`, appended, and whether there are any.
Fcodes list(const std::map<std::string, FakeDataHolder::Texts>& lists, const std::string& key,
            FakeDataHolder::Texts& names)
{
    const auto found = lists.find(key);
    if (found == lists.end())
        return FC_NO_SUCH_NAME;
    names.insert(names.end(), found->second.begin(), found->second.end());
    return FC_OK;
}

} // namespace

template <typename... Args>
void FakeDataHolder::record(const std::string& operation, const Args&... args)
{
    std::ostringstream call;
    [[maybe_unused]] const char* separator = "";
    call << operation << '(';
    ((call << separator << args, separator = ", "), ...);
    call << ')';
    const std::lock_guard guard(mMutex);
    mCalls.push_back(call.str());
}

FakeDataHolder::Texts FakeDataHolder::calls()
{
    const std::lock_guard guard(mMutex);
    return mCalls;
}

bool FakeDataHolder::waitForCall(const std::string& call)
{
    return eventually([&] {
        const Texts made = calls();
        return std::ranges::find(made, call) != made.end();
    });
}

void FakeDataHolder::init(const std::string& name) { record("init", name); }

Fcodes FakeDataHolder::acceptChanges() { return record("acceptChanges"), FC_OK; }

Fcodes FakeDataHolder::rollbackChanges() { return record("rollbackChanges"), FC_OK; }

Fcodes FakeDataHolder::execute(const std::string& command, std::string& result)
{
    record("execute", command);
    return onExecute ? onExecute(command, result) : FC_OK;
}

Fcodes FakeDataHolder::handle(MessageEvent* event)
{
    const std::unique_ptr<MessageEvent> owned(event);
    record("handle", owned->ID, owned->Fcode);
    return FC_OK;
}

Fcodes FakeDataHolder::doExecute(const std::string& command, std::string&)
{
    return record("doExecute", command), FC_OK;
}

Fcodes FakeDataHolder::doHandle(MessageEvent* event) { return record("doHandle", event), FC_OK; }

int FakeDataHolder::newRow(const std::string& table, int rowId)
{
    return record("newRow", table, rowId), rowId;
}

int FakeDataHolder::appendNewRow(const std::string& table)
{
    return record("appendNewRow", table), 1;
}

int FakeDataHolder::getFirstRowIndex(const std::string& table)
{
    return record("getFirstRowIndex", table), 1;
}

int FakeDataHolder::getNextRowIndex(const std::string& table, int rowId)
{
    return record("getNextRowIndex", table, rowId), rowId + 1;
}

Fcodes FakeDataHolder::deleteRow(const std::string& table, int rowId)
{
    return record("deleteRow", table, rowId), FC_OK;
}

Fcodes FakeDataHolder::findDataSetWithComponent(std::string& dataset, const std::string& component)
{
    const auto found = dataSets.find(component);
    if (found == dataSets.end())
        return FC_NO_SUCH_NAME;
    dataset = found->second;
    return FC_OK;
}

Fcodes FakeDataHolder::getProperties(const std::string& dataset, const std::string& component,
                                     Texts& names)
{
    return list(properties, dataset + '/' + component, names);
}

Fcodes FakeDataHolder::getInstances(const std::string& dataset, const std::string& component,
                                    Texts& names)
{
    return list(instances, dataset + '/' + component, names);
}

Fcodes FakeDataHolder::getTextParam(const std::string& dataset, const std::string& component,
                                    const std::string& property, std::string& value,
                                    const std::string& key)
{
    const auto found = values.find(dataset + '/' + component + '/' + key + '/' + property);
    if (found == values.end())
        return FC_NO_SUCH_NAME;
    value = found->second;
    return FC_OK;
}

Fcodes FakeDataHolder::setTextParam(const std::string& dataset, const std::string& component,
                                    const std::string& property, const std::string& value,
                                    const std::string& key)
{
    record("setTextParam", dataset, component, property, value, key);
    const auto refused = refusals.find(property);
    return refused == refusals.end() ? FC_OK : refused->second;
}
