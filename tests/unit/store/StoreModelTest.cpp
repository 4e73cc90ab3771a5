// The store against a plain model: random operations on two components by key or by index, and
// after each of them all that can be asked of any value.

#include "RandomOperations.h"
#include "StoreFixture.h"

#include <map>
#include <variant>

namespace
{

using In = const std::string&;
using Value = std::variant<int, bool, std::string>;

/// Values by path, "A/k/n" or "A/1/n", and what they are in: "", "A/", "A/1/".
struct Tree : std::map<std::string, Value> {
    void put(In path, const Value& value = {})
    {
        for (char gap = '0'; path[2] < 'a' && gap < path[2];
             ++gap) // an array grows up to the index
            try_emplace(path.substr(0, 2) + gap + '/');
        for (const std::size_t length : {0, 2, 4})
            try_emplace(path.substr(0, length));
        insert_or_assign(path, value);
    }
    void put(const Tree& from, In path, std::size_t shortest)
    {
        for (const auto& [each, value] : from)
            if (each.starts_with(path) && each.size() >= shortest)
                put(each, value);
    }
    void drop(In path)
    {
        std::erase_if(*this, [&](const auto& entry) { return entry.first.starts_with(path); });
    }
};

const std::map<std::string, Value> kNewRow{{"b", true}, {"n", 5}, {"t", "new"}};

template <typename Place>
class StoreModelTest : public StoreTest
{
protected:
    // clang-format off
    Fcodes get(int& v) { return store.getIntParam("D", c, p, v, at); }
    Fcodes get(bool& v) { return store.getBoolParam("D", c, p, v, at); }
    Fcodes get(std::string& v) { return store.getTextParam("D", c, p, v, at); }
    Fcodes getNew(int& v) { return store.getNewIntParam("D", c, p, v, at); }
    Fcodes getNew(bool& v) { return store.getNewBoolParam("D", c, p, v, at); }
    Fcodes getNew(std::string& v) { return store.getNewTextParam("D", c, p, v, at); }
    Fcodes set(int v) { return store.setIntParam("D", c, p, v, at); }
    Fcodes set(bool v) { return store.setBoolParam("D", c, p, v, at); }
    Fcodes set(In v) { return store.setTextParam("D", c, p, v, at); }
    Fcodes init(int v) { return store.initIntParam("D", c, p, v, at); }
    Fcodes init(bool v) { return store.initBoolParam("D", c, p, v, at); }
    Fcodes init(In v) { return store.initTextParam("D", c, p, v, at); }
    Fcodes add(In key) { return store.addInstance("D", c, key); }
    Fcodes add(int index) { return store.appendInstance("D", c, index); }
    // clang-format on

    void write(const Value& given, const Value& stored, bool isInit)
    {
        const bool known = committed.contains(path);
        const bool fits = known && committed[path].index() == stored.index();
        if (fits)
            (isInit ? committed : pending).put(path, stored);
        if (fits && isInit)
            pending.erase(path);
        const auto call = [&](const auto& v) { return isInit ? init(v) : set(v); };
        EXPECT_EQ(!known ? FC_NO_SUCH_NAME : fits ? FC_OK : FC_WRONG_TYPE, std::visit(call, given));
    }

    void add()
    {
        std::string made = kByIndex ? c + "/0/" : row;
        while (kByIndex && committed.contains(made))
            ++made[2];
        for (const auto& [property, value] : kNewRow)
            committed.put(made + property, value);
        EXPECT_EQ(FC_OK, add(at));
    }

    void remove()
    {
        EXPECT_EQ(committed.contains(row), store.removeInstance("D", c, at) == FC_OK);
        committed.drop(row);
        auto next = committed.lower_bound(row);
        while (kByIndex && next != committed.end() && next->first[0] == row[0]) {
            auto moved = committed.extract(next++); // one down; what is pending stays
            --moved.key()[2];
            committed.insert(std::move(moved));
        }
    }

    void choose(In component, std::size_t place, In property)
    {
        c = component;
        p = property;
        row = c + '/' + static_cast<char>((kByIndex ? '0' : 'k') + place) + '/';
        path = row + p;
        at = places[place];
    }

    void expectAlike()
    {
        const auto in = committed.upper_bound(row);
        const bool holds = in != committed.end() && in->first.starts_with(row);
        EXPECT_EQ(holds, store.hasInstance("D", c, at)) << row;
        EXPECT_EQ(pending.contains(row), store.isChangedInstance("D", c, at)) << row;
        EXPECT_EQ(pending.contains(path), store.isChangedProperty("D", c, p, at)) << path;
        for (const bool isNew : {false, true}) {
            const auto& tree = isNew && pending.contains(path) ? pending : committed;
            const auto held = tree.contains(path) ? *tree.find(path) : *kNewRow.find(p);
            Value got = kNewRow.at(p); // untouched where there is none
            const auto read = [&](auto& v) { return isNew ? getNew(v) : get(v); };
            EXPECT_EQ(tree.contains(path), std::visit(read, got) == FC_OK) << path << isNew;
            EXPECT_EQ(held.second, got) << path << isNew;
        }
    }

    void run(const std::vector<Place>& all);

    static constexpr bool kByIndex = std::is_same_v<Place, int>;
    std::vector<Place> places;
    std::string c, p, row, path; // what the next operation is on
    Place at{};
    Tree committed, file;
    Tree pending; // what counts as changed
};

template <typename Place>
void StoreModelTest<Place>::run(const std::vector<Place>& all)
{
    places = all;
    const std::string component = R"({'properties': {
        'n': {'type': 'integer', 'default': 5}, 'b': {'type': 'boolean', 'default': true},
        't': {'type': 'string', 'default': 'new'}}})";
    load("{'A': " + component + ", 'B': " + component + "}");
    committed.put("A/");
    committed.put("B/");
    file = committed;
    store.storeDataSet("D", "/tmp/D");
    const std::tuple<std::string, Value, Value> writes[] = {
        {"n", -3, -3},       {"n", "0x1F", 31}, {"n", true, true},           {"b", false, false},
        {"b", "true", true}, {"b", 1, 1},       {"t", "caf\xe9", "caf\xe9"}, {"t", "", ""},
        {"t", 0, 0}};
    Value given, stored;
    std::string in; // all, or the component
    // clang-format off
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"write", [&] { write(given, stored, in.empty()); }}, // to the committed tree, or pending
        {"add", [&] { add(); }},
        {"add", [&] { add(); }},
        {"add", [&] { add(); }},
        {"remove", [&] { remove(); }},
        {"clear", [&] { committed.drop(c + '/'); committed.put(c + '/'); store.clearComponent("D", c); }},
        {"commit", [&] { committed.put(pending, in, 5); pending.drop(in); in.empty() ? store.commit() : store.commitComponent("D", c); }},
        {"rollback", [&] { pending.drop(in); in.empty() ? store.rollback() : store.rollbackComponent("D", c); }},
        {"touch", [&] { pending.drop(in); pending.put(committed, in, 0); in.empty() ? store.touchDataSet("D") : store.touchComponent("D", c); }},
        {"untouch", [&] { pending.drop(in); in.empty() ? store.untouchDataSet("D") : store.untouchComponent("D", c); }},
        {"untouch one", [&] { pending.erase(path); store.untouchProperty("D", c, p, at); }},
        {"store", [&] { file = committed; store.storeDataSet("D", "/tmp/D"); }},
        {"load", [&] { committed = file; store.loadDataSet("D", "/tmp/D"); }},
    };
    // clang-format on
    runOperations("store", 800, [&](const Draw& draw) {
        const auto& [name, operation] =
            operations[std::max(8U, draw(std::size(operations) + 8)) - 8];
        std::tie(p, given, stored) = writes[draw(std::size(writes))];
        choose(draw(2) == 0 ? "A" : "B", draw(3), std::string(p));
        in = draw(2) == 0 ? "" : c + '/';
        const std::string done = name + (" in " + in) + " at " + path;
        operation();
        EXPECT_EQ(pending.contains(""), store.isChanged() && store.isChangedDataSet("D"));
        for (const std::string each : {"A", "B"}) {
            EXPECT_EQ(pending.contains(each + '/'), store.isChangedComponent("D", each));
            for (unsigned i = 0; i < 9; ++i)
                choose(each, i / 3, std::string(1, "bnt"[i % 3])), expectAlike();
        }
        return done;
    });
}

using StoreByKeyTest = StoreModelTest<std::string>;
TEST_F(StoreByKeyTest, AnswersAsAPlainModel) { run({kSingleInstance, "0", "1"}); }

using StoreByIndexTest = StoreModelTest<int>;
TEST_F(StoreByIndexTest, AnswersAsAPlainModel) { run({0, 1, 2}); }

} // namespace
