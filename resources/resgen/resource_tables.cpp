#include "resources/resgen/resource_tables.h"

#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <set>
#include <string_view>
#include <system_error>

namespace ferrylink::resources {
namespace {

constexpr int kMaxPropertyValues = 256;

struct Row {
    int line = 0;
    std::vector<std::string> cells;
};

// Reads a tab-separated table. Blank lines and lines starting with '#' are
// skipped; every other line must have `columns` cells.
class Table {
public:
    Table(std::filesystem::path path, std::size_t columns) : path_(std::move(path)) {
        std::ifstream in(path_, std::ios::binary);
        if (!in) {
            throw TableError(path_.string() + ": cannot open");
        }
        std::string text;
        for (int number = 1; std::getline(in, text); ++number) {
            if (!text.empty() && text.back() == '\r') {
                text.pop_back();
            }
            if (text.empty() || text.front() == '#') {
                continue;
            }
            Row row{number, split(text, '\t')};
            if (row.cells.size() != columns) {
                fail(row, "expected " + std::to_string(columns) + " tab-separated columns, found " +
                              std::to_string(row.cells.size()));
            }
            rows_.push_back(std::move(row));
        }
    }

    const std::vector<Row>& rows() const { return rows_; }

    [[noreturn]] void fail(const Row& row, const std::string& message) const {
        throw TableError(path_.string() + ":" + std::to_string(row.line) + ": " + message);
    }

    template <typename Number>
    Number number(const Row& row, std::size_t column, std::string_view what) const {
        const std::string& cell = row.cells[column];
        Number value{};
        const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
        if (cell.empty() || error != std::errc() || end != cell.data() + cell.size()) {
            fail(row, std::string(what) + " is not a number: \"" + cell + "\"");
        }
        return value;
    }

    bool flag(const Row& row, std::size_t column, std::string_view what) const {
        const std::string& cell = row.cells[column];
        if (cell == "1") {
            return true;
        }
        if (cell != "0") {
            fail(row, std::string(what) + " must be 0 or 1, not \"" + cell + "\"");
        }
        return false;
    }

    void requireUnique(std::set<std::string>& seen, const Row& row, const std::string& key) const {
        if (!seen.insert(key).second) {
            fail(row, "\"" + key + "\" appears twice");
        }
    }

    static std::vector<std::string> split(std::string_view text, char separator) {
        std::vector<std::string> parts;
        std::size_t start = 0;
        while (true) {
            const std::size_t end = text.find(separator, start);
            parts.emplace_back(text.substr(start, end - start));
            if (end == std::string_view::npos) {
                return parts;
            }
            start = end + 1;
        }
    }

private:
    std::filesystem::path path_;
    std::vector<Row> rows_;
};

// "lo..hi" stands for every whole number from lo to hi; anything else is a
// comma-separated list of values.
std::vector<std::string> expandValues(const Table& table, const Row& row, std::string_view valueList,
                                      bool numeric) {
    std::vector<std::string> values;
    if (const auto dots = valueList.find(".."); numeric && dots != std::string_view::npos) {
        int low = 0;
        int high = 0;
        const auto first = valueList.substr(0, dots);
        const auto last = valueList.substr(dots + 2);
        const auto [lowEnd, lowError] = std::from_chars(first.data(), first.data() + first.size(), low);
        const auto [highEnd, highError] = std::from_chars(last.data(), last.data() + last.size(), high);
        if (lowError != std::errc() || highError != std::errc() || lowEnd != first.data() + first.size() ||
            highEnd != last.data() + last.size() || low > high) {
            table.fail(row, "bad range \"" + std::string(valueList) + "\"");
        }
        // A property with more values than this is a typo, not a block.
        if (static_cast<long long>(high) - low >= kMaxPropertyValues) {
            table.fail(row, "range \"" + std::string(valueList) + "\" has more than " +
                                std::to_string(kMaxPropertyValues) + " values");
        }
        for (int value = low; value <= high; ++value) {
            values.push_back(std::to_string(value));
        }
        return values;
    }
    for (auto& value : Table::split(valueList, ',')) {
        if (value.empty()) {
            table.fail(row, "empty value in \"" + std::string(valueList) + "\"");
        }
        if (numeric) {
            long long number = 0;
            const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
            if (error != std::errc() || end != value.data() + value.size()) {
                table.fail(row, "\"" + value + "\" is not a number");
            }
        }
        values.push_back(std::move(value));
    }
    return values;
}

// One property: "name:kind=values", kind being byte, int or string.
StateProperty parseProperty(const Table& table, const Row& row, std::string_view text) {
    const auto colon = text.find(':');
    const auto equals = text.find('=');
    if (colon == std::string_view::npos || equals == std::string_view::npos || colon == 0 || equals < colon) {
        table.fail(row, "property \"" + std::string(text) + "\" is not name:kind=values");
    }
    StateProperty property;
    property.name = std::string(text.substr(0, colon));
    const auto kind = text.substr(colon + 1, equals - colon - 1);
    if (kind == "byte") {
        property.kind = StateKind::Byte;
    } else if (kind == "int") {
        property.kind = StateKind::Int;
    } else if (kind == "string") {
        property.kind = StateKind::String;
    } else {
        table.fail(row, "unknown property kind \"" + std::string(kind) + "\"");
    }
    property.values = expandValues(table, row, text.substr(equals + 1), property.kind != StateKind::String);
    if (property.kind != StateKind::String) {
        const bool isByte = property.kind == StateKind::Byte;
        const long long low = isByte ? std::numeric_limits<std::int8_t>::min() : std::numeric_limits<std::int32_t>::min();
        const long long high = isByte ? std::numeric_limits<std::int8_t>::max() : std::numeric_limits<std::int32_t>::max();
        for (const auto& value : property.values) {
            long long number = 0;
            std::from_chars(value.data(), value.data() + value.size(), number);
            if (number < low || number > high) {
                table.fail(row, "value " + value + " out of range for " + std::string(kind));
            }
        }
    }
    return property;
}

}  // namespace

std::vector<Biome> loadBiomes(const std::filesystem::path& path) {
    const Table table(path, 3);
    std::vector<Biome> biomes;
    std::set<std::string> seen;
    for (const auto& row : table.rows()) {
        Biome biome;
        biome.name = row.cells[0];
        table.requireUnique(seen, row, biome.name);
        biome.temperature = table.number<float>(row, 1, "temperature");
        biome.downfall = table.number<float>(row, 2, "downfall");
        if (!std::isfinite(biome.temperature) || !std::isfinite(biome.downfall)) {
            table.fail(row, "temperature and downfall must be finite");
        }
        biomes.push_back(std::move(biome));
    }
    return biomes;
}

std::vector<EntityIdentifier> loadEntityIdentifiers(const std::filesystem::path& path) {
    const Table table(path, 4);
    std::vector<EntityIdentifier> entities;
    std::set<std::string> seenIds;
    std::set<std::string> seenRuntimeIds;
    for (const auto& row : table.rows()) {
        EntityIdentifier entity;
        entity.id = row.cells[0];
        table.requireUnique(seenIds, row, entity.id);
        entity.runtimeId = table.number<std::int32_t>(row, 1, "runtime id");
        table.requireUnique(seenRuntimeIds, row, row.cells[1]);
        entity.hasSpawnEgg = table.flag(row, 2, "spawn egg");
        entity.summonable = table.flag(row, 3, "summonable");
        entities.push_back(std::move(entity));
    }
    return entities;
}

std::vector<BlockType> loadBlockPalette(const std::filesystem::path& path) {
    const Table table(path, 3);
    std::vector<BlockType> blocks;
    std::set<std::string> seen;
    std::set<std::string> seenLegacyIds;
    for (const auto& row : table.rows()) {
        BlockType block;
        block.legacyId = table.number<std::int16_t>(row, 0, "legacy id");
        table.requireUnique(seenLegacyIds, row, row.cells[0]);
        block.name = row.cells[1];
        table.requireUnique(seen, row, block.name);
        if (row.cells[2] != "-") {
            std::set<std::string> propertyNames;
            for (const auto& text : Table::split(row.cells[2], ' ')) {
                block.properties.push_back(parseProperty(table, row, text));
                table.requireUnique(propertyNames, row, block.properties.back().name);
            }
        }
        blocks.push_back(std::move(block));
    }
    return blocks;
}

}  // namespace ferrylink::resources
