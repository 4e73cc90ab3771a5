#pragma once

// A data holder that serves its tables to peers as well: the data requests GET and SET read and
// write the tables of its registered data sets, and the components of its store where there is no
// table of that name. An application that keeps its state in tables derives from this class instead
// of DataHolder, and registers its data sets before it starts the communicator.
//
// A row is named by its decimal id, an item by its column. What a peer sets is pending until
// acceptChanges(). A request that fails clears the marks of all that is pending, in every data set,
// but the values stay and take effect when the next change of their row is accepted: see DataItem.
// Peers cannot write a column that is read only (RO), nor read one that is write only (WO): both
// are FC_ACCESS_DENIED.

#include "DataHolder.h"

class TableHolder : public DataHolder
{
public:
    using DataHolder::getTextParam;
    using DataHolder::setTextParam;

    /// As DataHolder's, with `component` the name of a table. For a table the data set is not
    /// looked at: table names are unique in a holder.
    Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) override;
    Fcodes getProperties(const std::string& dataset, const std::string& component,
                         std::vector<std::string>& names) override;
    Fcodes getInstances(const std::string& dataset, const std::string& component,
                        std::vector<std::string>& names) override;
    Fcodes getTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, std::string& value,
                        const std::string& key) override;
    Fcodes setTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, const std::string& value,
                        const std::string& key) override;

private:
    bool hasAccess(const std::string& table, const std::string& column, int access);
};
