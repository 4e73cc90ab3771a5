#pragma once

// A store with one dataset "D", and short words for the tests of it.

#include "DataSets.h"
#include "DbgPrintClient.h"
#include "LogCapture.h"

#include <fstream>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>
#include <sstream>

class StoreTest : public testing::Test
{
protected:
    static constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets:";

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

    /// The committed components of a dataset, in the form in which they are stored in a file.
    std::string committed(const std::string& dataset = "D")
    {
        store.storeDataSet(dataset, "/tmp/committed.json");
        Json::Value root;
        std::ifstream file("/tmp/committed.json");
        Json::Reader().parse(file, root);
        return compact(root["components"]);
    }

    static std::string json(const std::string& text) { return compact(parsed(text)); }

    static Json::Value parsed(const std::string& text)
    {
        Json::Value root;
        EXPECT_TRUE(Json::Reader().parse(quoted(text), root)) << text;
        return root;
    }

    /// The store's lines since the last look, as "ERROR addInstance: ...".
    std::vector<std::string> logged()
    {
        std::vector<std::string> lines = log.entries();
        for (std::string& line : lines)
            if (const std::size_t unit = line.find(kUnit); unit != std::string::npos)
                line.erase(unit, sizeof kUnit - 1);
        log.clear();
        return lines;
    }

    static std::string compact(const Json::Value& value)
    {
        std::ostringstream out;
        out << value;
        return out.str();
    }

    LogCapture log;
    DataSets store;

private:
    static std::string quoted(std::string text)
    {
        for (char& c : text)
            if (c == '\'')
                c = '"';
        return text;
    }
};

using Lines = std::vector<std::string>;
