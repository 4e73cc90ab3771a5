#pragma once

// A data holder that serves its tables to peers as well: the data requests GET and SET read and
// write the tables that findDataTable() finds, and the components of its store where there is no
// table of that name. An application that keeps its state in tables derives from this class instead
// of DataHolder, and registers its data sets before it starts the communicator.
//
// A row is named by its decimal id, "7" and not "7x" or "+7"; an item by its column. What a peer
// sets is pending until acceptChanges(). A request that fails clears the marks of all that is
// pending, in every data set, but the values stay and take effect when the next change of their row
// is accepted: see DataItem. Peers cannot write a column that is read only (RO), nor read one that
// is write only (WO).

#include "DataHolder.h"

class TableHolder : public DataHolder
{
public:
    using DataHolder::getTextParam;
    using DataHolder::setTextParam;

    /// As DataHolder's where `component` is no table, with its results. Of a table they give the
    /// data set that holds it (its own name, if it stands alone), its columns and the ids of its
    /// rows, those marked deleted included: FC_OK. `dataset` is not looked at: table names are
    /// unique in a holder. Any thread; each asks findDataTable() once.
    Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) override;
    Fcodes getProperties(const std::string& dataset, const std::string& component,
                         std::vector<std::string>& names) override;
    Fcodes getInstances(const std::string& dataset, const std::string& component,
                        std::vector<std::string>& names) override;

    /// As DataHolder's where `component` is no table. Of a table: the committed text of a cell, and
    /// its pending value, as DataItem::setValue() takes a text, with its result. FC_NO_SUCH_NAME
    /// when there is no such row or item, FC_ACCESS_DENIED for a column that peers cannot read or
    /// write. They work on the table itself, not through getStringParam() and setStringParam().
    Fcodes getTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, std::string& value,
                        const std::string& key) override;
    Fcodes setTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, const std::string& value,
                        const std::string& key) override;
};
