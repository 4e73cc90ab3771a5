#pragma once

// The interface through which the communicator reaches the application's main object. It holds what
// the communicator calls and what an application overrides; the store's other operations are
// DataHolder's own. The communicator calls from its responder thread, see DataCommunicator.h.

#include "Fcodes.h"

#include <string>
#include <vector>

class MessageEvent;

class IDataHolder
{
public:
    virtual ~IDataHolder() = default;

    virtual void init(const std::string& name) = 0;

    /// Makes pending changes permanent, or forgets them.
    virtual Fcodes acceptChanges() = 0;
    virtual Fcodes rollbackChanges() = 0;

    /// Takes a command (its element text) or an event from the wire. The holder owns the event from
    /// here on. `result` is the text that goes back in the body of the answer.
    virtual Fcodes execute(const std::string& command, std::string& result) = 0;
    virtual Fcodes handle(MessageEvent* event) = 0;

    /// Carries out one queued command or event on the holder's worker thread.
    virtual Fcodes doExecute(const std::string& command, std::string& result) = 0;
    virtual Fcodes doHandle(MessageEvent* event) = 0;

    /// Rows of a table. Row ids start at 1; 0 says that there is no such row or table.
    virtual int newRow(const std::string& table, int rowId) = 0;
    virtual int appendNewRow(const std::string& table) = 0;
    virtual int getFirstRowIndex(const std::string& table) = 0;
    virtual int getNextRowIndex(const std::string& table, int rowId) = 0;
    virtual Fcodes deleteRow(const std::string& table, int rowId) = 0;

    /// Data requests. `key` names the instance; the empty key is a component's single instance.
    virtual Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) = 0;
    virtual Fcodes getProperties(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names) = 0;
    virtual Fcodes getInstances(const std::string& dataset, const std::string& component,
                                std::vector<std::string>& names) = 0;
    virtual Fcodes getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value,
                                const std::string& key) = 0;
    virtual Fcodes setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value,
                                const std::string& key) = 0;
};
