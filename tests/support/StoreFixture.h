#pragma once

// A store with one dataset "D", and short words for the tests of it.

#include "DataSets.h"
#include "LogCapture.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <json/json.h>
#include <sstream>

using Lines = std::vector<std::string>;

class StoreTest : public testing::Test
{
protected:
    /// Makes the dataset from the text of its components, the single quotes being double ones.
    void load(const std::string& components, const std::string& dataset = "D")
    {
        const std::string path = "/tmp/" + dataset + ".json";
        write(path, "{'components':" + components + "}");
        ASSERT_EQ(FC_OK, store.loadDataSet(dataset, path));
    }

    static void write(const std::string& path, const std::string& text)
    {
        std::ofstream(path) << quoted(text);
    }

    /// The committed components of "D", in the form in which they are stored in a file.
    std::string committed() { return compact(storedDocument()["components"]); }

    Json::Value storedDocument()
    {
        store.storeDataSet("D", "/tmp/committed.json");
        Json::Value root;
        std::ifstream("/tmp/committed.json") >> root;
        return root;
    }

    static std::string json(const std::string& text) { return compact(parsed(text)); }

    static Json::Value parsed(const std::string& text)
    {
        Json::Value root;
        EXPECT_TRUE(Json::Reader().parse(quoted(text), root)) << text;
        return root;
    }

    static std::string compact(const Json::Value& value)
    {
        return (std::ostringstream() << value).str();
    }

    /// Several operations, carried out in their order, all answer alike.
    static void expectEach(Fcodes wanted, const std::vector<Fcodes>& results)
    {
        EXPECT_THAT(results, testing::Each(wanted));
    }

    /// The store's lines since the last look, as "ERROR addInstance: ...".
    Lines logged() { return log.take("applications/SystemManagement/DataComLib/src/DataSets"); }

    LogCapture log;
    DataSets store;

private:
    static std::string quoted(std::string text)
    {
        std::ranges::replace(text, '\'', '"');
        return text;
    }
};
