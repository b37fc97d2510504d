// ferrylink-resgen: writes the bundle's .nbt files from the tables in
// resources/tables. Run by hand when a table changes; see resources/README.md.

#include <CLI/CLI.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>

#include "resources/resgen/resource_builder.h"

namespace {

namespace fs = std::filesystem;

// Writes through a temporary file beside the target, so that a failed run
// never leaves a half-written resource behind.
void writeFile(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
    const fs::path partial = fs::path(path).concat(".partial");
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (!out) {
            throw std::runtime_error(partial.string() + ": write failed");
        }
    }
    fs::rename(partial, path);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Writes biome_definitions.nbt, entity_identifiers.nbt and required_block_states.nbt "
                 "from the source tables."};
    app.set_version_flag("--version", "ferrylink-resgen " FERRYLINK_VERSION);
    fs::path tablesDir;
    fs::path outDir;
    app.add_option("--tables", tablesDir, "folder holding biomes.tsv, entities.tsv and block_palette.tsv")
        ->required()
        ->check(CLI::ExistingDirectory);
    app.add_option("--out", outDir, "folder to write the .nbt files into (created when missing)")->required();
    CLI11_PARSE(app, argc, argv);

    try {
        const auto files = ferrylink::resources::buildResourceFiles(tablesDir);
        fs::create_directories(outDir);
        for (const auto& file : files) {
            writeFile(outDir / file.fileName, file.bytes);
            std::cout << file.fileName << ": " << file.bytes.size() << " bytes, " << file.summary << '\n';
        }
    } catch (const ferrylink::resources::TableError& error) {
        std::cerr << "ferrylink-resgen: " << error.what() << '\n';
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "ferrylink-resgen: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
