#pragma once

// A data holder that holds what a test gives it and records what it is asked to do, one line a
// call: "newRow(Table, 3)". Reads are not recorded; the answers show them. Set it up before threads
// use it; the record may be read at any time.

#include "DataHolder.h"
#include "MessageEvent.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class FakeDataHolder : public DataHolder
{
public:
    using In = const std::string&;
    using Traits = std::vector<std::string>;

    std::map<std::string, std::string> values;   ///< By "data set/component/row/item".
    std::map<std::string, Traits> properties;    ///< By "data set/component".
    std::map<std::string, Traits> instances;     ///< By "data set/component".
    std::map<std::string, std::string> dataSets; ///< The data set of a component.
    std::map<std::string, Fcodes> refusals;      ///< Of setTextParam(), by item.
    Fcodes commandResult = FC_OK;
    std::string commandText; ///< The text of its answer.

    Traits calls()
    {
        const std::lock_guard guard(mCallsMutex);
        return mCalls;
    }

    Fcodes execute(In command, std::string& result) override
    {
        result = commandText;
        return record("execute(" + command + ")", commandResult);
    }
    Fcodes handle(MessageEvent* event) override
    {
        const std::unique_ptr<MessageEvent> owned(event);
        return record("handle(" + event->ID + ", " + std::to_string(event->Fcode) + ")", FC_OK);
    }
    Fcodes doHandle(MessageEvent*) override { return FC_UNSUPPORTED; }

    // clang-format off
    Fcodes rollbackChanges() override { return record("rollbackChanges()", FC_OK); }
    int newRow(In table, int row) override { return record(call("newRow", table, row), row); }
    int appendNewRow(In table) override { return record("appendNewRow(" + table + ")", 1); }
    int getFirstRowIndex(In table) override { return record("getFirstRowIndex(" + table + ")", 1); }
    int getNextRowIndex(In table, int row) override { return record(call("getNextRowIndex", table, row), row + 1); }
    Fcodes findDataSetWithComponent(std::string& set, In component) override { return find(dataSets, component, set); }
    Fcodes getProperties(In set, In component, Traits& names) override { return append(properties, set + '/' + component, names); }
    Fcodes getInstances(In set, In component, Traits& names) override { return append(instances, set + '/' + component, names); }
    // clang-format on

    Fcodes getTextParam(In set, In component, In item, std::string& value, In row) override
    {
        return find(values, set + '/' + component + '/' + row + '/' + item, value);
    }
    Fcodes setTextParam(In set, In component, In item, In value, In row) override
    {
        Fcodes result = FC_OK;
        find(refusals, item, result);
        return record("setTextParam(" + set + ", " + component + ", " + item + ", " + value + ", " +
                          row + ")",
                      result);
    }

private:
    template <typename Value>
    static Fcodes find(const std::map<std::string, Value>& held, const std::string& key, Value& out)
    {
        const auto found = held.find(key);
        if (found == held.end())
            return FC_NO_SUCH_NAME;
        out = found->second;
        return FC_OK;
    }

    static Fcodes append(const std::map<std::string, Traits>& held, In key, Traits& names)
    {
        Traits more;
        const Fcodes result = find(held, key, more);
        names.insert(names.end(), more.begin(), more.end());
        return result;
    }

    static std::string call(const std::string& operation, In table, int row)
    {
        return operation + '(' + table + ", " + std::to_string(row) + ')';
    }

    template <typename Result>
    Result record(const std::string& call, Result result)
    {
        const std::lock_guard guard(mCallsMutex);
        mCalls.push_back(call);
        return result;
    }

    std::mutex mCallsMutex; // guards mCalls
    Traits mCalls;
};
