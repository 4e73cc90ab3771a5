#pragma once

// A data holder that holds what a test gives it and records what it is asked to do, one line a
// call: "newRow(Table, 3)". Reads are not recorded; the answers show them. Set it up before threads
// use it; the record may be read at any time.

#include "DataHolder.h"

#include <memory>
#include <sstream>

class FakeDataHolder : public DataHolder
{
public:
    using In = const std::string&;
    using Names = std::vector<std::string>;

    std::map<std::string, std::string> values;   ///< By "data set/component/row/item".
    std::map<std::string, Names> properties;     ///< By "data set/component".
    std::map<std::string, Names> instances;      ///< By "data set/component".
    std::map<std::string, std::string> dataSets; ///< The data set of a component.
    std::map<std::string, Fcodes> refusals;      ///< Of setTextParam(), by item.
    Fcodes commandResult = FC_OK;
    std::string commandText; ///< The text of its answer.

    Names calls()
    {
        const std::lock_guard guard(mCallsMutex);
        return mCalls;
    }

    Fcodes execute(In command, std::string& result) override
    {
        result = commandText;
        return record(commandResult, "execute", command);
    }
    Fcodes handle(MessageEvent* event) override
    {
        const std::unique_ptr<MessageEvent> owned(event);
        return record(FC_OK, "handle", event->ID, event->Fcode);
    }
    Fcodes doHandle(MessageEvent*) override { return FC_UNSUPPORTED; }

    // clang-format off
    Fcodes rollbackChanges() override { return record(FC_OK, "rollbackChanges"); }
    int newRow(In table, int row) override { return record(row, "newRow", table, row); }
    int appendNewRow(In table) override { return record(1, "appendNewRow", table); }
    int getFirstRowIndex(In table) override { return record(1, "getFirstRowIndex", table); }
    int getNextRowIndex(In table, int row) override { return record(row + 1, "getNextRowIndex", table, row); }
    Fcodes findDataSetWithComponent(std::string& set, In component) override { return find(dataSets, component, set); }
    Fcodes getProperties(In set, In component, Names& names) override { return find(properties, set + '/' + component, names); }
    Fcodes getInstances(In set, In component, Names& names) override { return find(instances, set + '/' + component, names); }
    // clang-format on

    Fcodes getTextParam(In set, In component, In item, std::string& value, In row) override
    {
        return find(values, set + '/' + component + '/' + row + '/' + item, value);
    }
    Fcodes setTextParam(In set, In component, In item, In value, In row) override
    {
        Fcodes result = FC_OK;
        find(refusals, item, result);
        return record(result, "setTextParam", set, component, item, value, row);
    }

private:
    template <typename Value>
    static Fcodes find(const std::map<std::string, Value>& held, const std::string& key, Value& out)
    {
        const auto found = held.find(key);
        if (found != held.end())
            out = found->second;
        return found == held.end() ? FC_NO_SUCH_NAME : FC_OK;
    }

    template <typename Result, typename... Arguments>
    Result record(Result result, const char* operation, const Arguments&... arguments)
    {
        std::ostringstream call;
        std::string separator;
        call << operation << '(';
        ((call << separator << arguments, separator = ", "), ...);
        call << ')';
        const std::lock_guard guard(mCallsMutex);
        mCalls.push_back(call.str());
        return result;
    }

    std::mutex mCallsMutex; // guards mCalls
    Names mCalls;
};
