// Two tables of a set against plain models: random operations, and after each of them every row and
// cell, and where the walks lead.

#include "DataSet.h"
#include "RandomOperations.h"
#include "TableFixture.h"

#include <algorithm>
#include <tuple>

namespace
{

using Value = std::pair<int, std::string>;

struct Row {
    unsigned state = STATE_ADDED, cell = STATE_ADDED;
    Value value{40, "40"}, pending = value;
};

struct Model {
    unsigned state = STATE_ADDED;
    std::map<int, Row> rows;

    void setStates(unsigned bits)
    {
        state = bits;
        for (auto& [id, row] : rows)
            row.state = row.cell = bits;
    }

    void accept()
    {
        std::erase_if(rows,
                      [](const auto& row) { return (row.second.state & STATE_DELETED) != 0; });
        for (auto& [id, row] : rows)
            row.value =
                row.state != STATE_CLEAN ? row.pending : row.value; // a rollback leaves some
        setStates(STATE_CLEAN);
    }

    void rollback()
    {
        std::erase_if(rows, [](const auto& row) { return row.second.state == STATE_ADDED; });
        setStates(STATE_CLEAN);
    }

    void make(int id, const Row* like, bool reuse)
    {
        const bool isNew = rows.try_emplace(id).second;
        Row& row = rows[id];
        if (like != nullptr && (isNew || reuse))
            row.pending = like->value, row.cell |= STATE_MODIFIED;
        else if (reuse)
            row.value = row.pending = Row().value;
        row.state |= reuse && !isNew ? STATE_MODIFIED : STATE_CLEAN;
    }

    void load()
    {
        setStates(STATE_CLEAN);
        for (auto& [id, row] : rows) // by the text, which may have lagged behind the number
            row.pending = row.value = {std::atoi(row.value.second.c_str()), row.value.second};
    }
};

/// The id of the first row that is not passed over.
int walk(auto row, auto end, auto passesOver)
{
    row = std::find_if(row, end, [&](const auto& each) { return !passesOver(each.second.state); });
    return row == end ? 0 : row->first;
}

void expectAlike(const Model& model, const DataTable& table)
{
    const auto& [state, rows] = model;
    const auto deleted = [](unsigned bits) { return (bits & STATE_DELETED) != 0; };
    const auto onlyDeleted = [](unsigned bits) { return bits == STATE_DELETED; };
    const auto changed = [](unsigned bits) { return bits != STATE_CLEAN; };
    EXPECT_EQ(state, table.getState());
    EXPECT_EQ(walk(rows.begin(), rows.end(), deleted), table.getFirstRowIndex());
    EXPECT_EQ(walk(rows.rbegin(), rows.rend(), changed), table.getLastRowIndex());
    ASSERT_EQ(rows.size(), static_cast<std::size_t>(table.getRowsNum()));
    for (const auto& [id, row] : rows) {
        const DataRow* const held = table.getRows(id);
        ASSERT_NE(nullptr, held) << id;
        const DataItem& cell = *held->getDataItem("Limit");
        EXPECT_EQ(std::tuple(row.state, row.cell), std::tuple(held->getState(), cell.getState()));
        EXPECT_EQ(row.value, Value(cell.getIntVal(), cell.getStrVal())) << id;
        EXPECT_EQ(row.pending, Value(cell.getIntVal_copy(), cell.getStrVal_copy())) << id;
        EXPECT_EQ(walk(rows.upper_bound(id), rows.end(), onlyDeleted), table.getNextRowIndex(id));
    }
}

TEST(TableModelTest, AnswersAsAPlainModel)
{
    DataSet set("Set");
    Model models[2];
    const std::string names[] = {"A", "B"};
    for (const std::string& name : names) {
        set.addTable(name, new DataTable(name));
        set.getTable(name)->addColumns("Limit", column("Limit", DataColumn::INT, 40));
    }
    unsigned setState = STATE_ADDED;
    unsigned on = 0; // the table, row and value that are next
    int id = 0, number = 0;
    bool flag = false;
    const auto model = [&]() -> Model& { return models[on]; };
    const auto table = [&] { return set.getTable(names[on]); };
    const auto mark = [&] { model().state = setState = STATE_MODIFIED; };
    const auto write = [&](bool byText) {
        if (table()->getRows(id) == nullptr)
            return;
        DataItem& cell = *table()->getRows(id)->getDataItem("Limit");
        Row& row = model().rows.at(id);
        const std::string text = std::to_string(number) + "x"; // a number's pending text lags
        row.pending = {number, byText ? text : std::to_string(flag ? number : row.value.first)};
        if (flag) {
            row.value = row.pending;
            byText ? cell.initValue(text) : cell.initValue(number);
        } else {
            row.cell |= STATE_MODIFIED, row.state |= STATE_MODIFIED, mark();
            byText ? cell.setValue(text) : cell.setValue(number);
        }
    };
    // clang-format off
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"write a text", [&] { write(true); }},
        {"write a number", [&] { write(false); }},
        {"make", [&] { model().make(id, nullptr, flag); mark(); table()->newRow(id, nullptr, flag); }},
        {"append", [&] { if (table()->getRowsNum() < 8) { model().make(table()->appendNewRow(), nullptr, false); mark(); } }},
        {"copy", [&] { for (const auto& [row, like] : models[1 - on].rows) { model().make(row, &like, flag); mark(); }
                       table()->update(*set.getTable(names[1 - on]), true, true, true, flag); }},
        {"delete", [&] { if (table()->deleteRow(id) == FC_OK) { model().rows.at(id).state |= STATE_DELETED; mark(); } }},
        {"destroy", [&] { model().rows.erase(id); table()->doDeleteRow(id); }},
        {"accept", [&] { model().accept(); table()->acceptChanges(); }},
        {"rollback", [&] { model().rollback(); table()->rollbackChanges(); }},
        {"touch", [&] { model().setStates(STATE_MODIFIED); mark(); flag ? table()->touch() : set.touch(names[on]); }},
        {"untouch", [&] { model().setStates(STATE_CLEAN); table()->untouch(); }},
        {"touch all", [&] { for (Model& each : models) each.setStates(STATE_MODIFIED); setState = STATE_MODIFIED; set.touch(); }},
        {"untouch all", [&] { for (Model& each : models) each.setStates(STATE_CLEAN); setState = STATE_CLEAN; set.untouch(); }},
        {"accept all", [&] { models[0].accept(); models[1].accept(); setState = STATE_CLEAN; set.acceptChanges(); }},
        {"rollback all", [&] { models[0].rollback(); models[1].rollback(); setState = STATE_CLEAN; set.rollbackChanges(); }},
        {"load", [&] { models[0].load(); models[1].load(); setState = STATE_CLEAN; set.store("/tmp/set"); set.load("/tmp/set"); }},
    };
    // clang-format on
    runOperations("tables", 1000, [&](const Draw& draw) {
        const auto& [name, operation] =
            operations[std::max(4U, draw(std::size(operations) + 4)) - 4];
        on = draw(2), id = static_cast<int>(draw(6)) - 1, number = static_cast<int>(draw(9)) - 2,
        flag = draw(3) == 0;
        operation();
        EXPECT_EQ(setState, set.getState());
        expectAlike(models[0], *set.getTable("A"));
        expectAlike(models[1], *set.getTable("B"));
        return names[on] + std::to_string(id) + " " + name + " " + std::to_string(number) +
               (flag ? " at once" : "");
    });
}

} // namespace
