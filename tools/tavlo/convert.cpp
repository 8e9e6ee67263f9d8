// tools/tavlo/convert.cpp: the convert subcommand, database files brought in
// from and out to other formats through the library's converter modules.
// The format is the extension of the side that is not a database file;
// the module for "x" is "tavlo_x" (the JSON module for .json).
#include <cctype>
#include <fstream>

#include "commands.h"
#include "system.h"

namespace tavlo::tool {
namespace {

const char kConvertHelp[] =
    "usage: tavlo convert [OPTIONS] IN OUT\n"
    "Converts between a database file (.dbc) and another format through a\n"
    "converter module: IN.dbc to OUT.x exports, IN.x to OUT.dbc imports. The\n"
    "module for the extension x is tavlo_x (tavlo_json for .json), looked for\n"
    "next to the command and in the library's module directory; --module\n"
    "names one. OUT is not overwritten unless --force is given.\n"
    "Modules carry messages (with signals, value types and further\n"
    "transmitters), nodes, environment variables, attribute definitions and\n"
    "database attribute values; the version, value tables, the database\n"
    "comment, bit timings, categories, view filters, signal groups and\n"
    "relation values stay behind.\n";

// Where the file name's extension begins (its '.'), npos without one.
std::size_t ExtensionDot(const std::string& path) {
    const std::size_t slash = LastSeparator(path);
    const std::size_t dot = path.find_last_of('.');
    return dot != std::string::npos && (slash == std::string::npos || dot > slash)
               ? dot
               : std::string::npos;
}

std::string LowerExtension(const std::string& path) {
    const std::size_t dot = ExtensionDot(path);
    if (dot == std::string::npos) {
        return "";
    }
    std::string extension = path.substr(dot + 1);
    for (char& c : extension) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return extension;
}

// The module file for an extension: next to the command (as in the build
// tree), then where an installation keeps modules.
std::string FindModule(const std::string& extension) {
    const std::string file = "tavlo_" + extension + TAVLO_MODULE_SUFFIX;
    const std::string directory = CommandDirectory();
    for (const std::string& candidate :
         {JoinPath(directory, file),
          JoinPath(directory, TAVLO_INSTALLED_MODULE_DIR "/" + file)}) {
        if (Exists(candidate)) {
            return candidate;
        }
    }
    return "";
}

// An importer makes its database beside the source, under the source's name
// with ".DBC", and wants the source writable. Where that cannot be had, the
// import works on a copy in a fresh directory of its own, removed on
// destruction; otherwise on the source itself, so that what the module
// reports names the user's file.
class ImportSource {
public:
    explicit ImportSource(const std::string& source) {
        const std::size_t slash = LastSeparator(source);
        const std::string stem = source.substr(0, ExtensionDot(source));
        const std::string directory = slash == std::string::npos ? "." : source.substr(0, slash);
        if (!Exists(stem + ".DBC") && Writable(source) && Writable(directory)) {
            path_ = source;
            return;
        }
        directory_ = MakeTemporaryDirectory();
        if (directory_.empty()) {
            return;
        }
        copy_ = JoinPath(directory_,
                         slash == std::string::npos ? source : source.substr(slash + 1));
        std::ifstream in(source, std::ios::binary);
        std::ofstream out(copy_, std::ios::binary);
        out << in.rdbuf();
        out.close();
        if (in && out) {
            path_ = copy_;
        }
    }
    ~ImportSource() {
        if (!directory_.empty()) {
            std::remove(copy_.c_str());
            RemoveEmptyDirectory(directory_);
        }
    }
    ImportSource(const ImportSource&) = delete;
    ImportSource& operator=(const ImportSource&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string directory_;  // of the copy, if one was made
    std::string copy_;
    std::string path_;       // what to import; "" when the copy failed
};

// The library's copy of imported lists leaves out what a database file
// keeps in statements of their own: value types of signals, further
// transmitters of messages and data lengths of environment variables. This
// importer takes them over from the module's lists before they are released,
// so a round trip through another format keeps them.
class CompleteImporter : public TavloImporter {
public:
    using TavloImporter::TavloImporter;

    bool PostProcess(symblk* nodes, msgblk* messages, env_var_blk* envvars, btlblk* bitTimings,
                     attr_def* attrDefs, attr* dbAttrs, cat* categories, filter_t filter,
                     char* comment, char* userData, sigtype* sigTypes,
                     valtable* valueTables) override {
        if (mDatabase != nullptr) {
            TakeOverMessages(messages, mDatabase->mMessages, mDatabase->mNodes);
            TakeOverEnvvars(envvars, mDatabase->mEnvvars);
        }
        return TavloImporter::PostProcess(nodes, messages, envvars, bitTimings, attrDefs, dbAttrs,
                                          categories, filter, comment, userData, sigTypes,
                                          valueTables);
    }

private:
    // The copies are made in the order of the originals; a pair that does
    // not match stops the walk rather than mixing records up.
    static void TakeOverMessages(const msgblk* from, msgblk* to, symblk* nodes) {
        for (; from != nullptr && to != nullptr; from = from->next, to = to->next) {
            const unsigned int fromId = from->id;
            const unsigned int toId = to->id;
            if (fromId != toId) {
                return;
            }
            const sigblk* fromSignal = from->signals;
            sigblk* toSignal = to->signals;
            for (; fromSignal != nullptr && toSignal != nullptr;
                 fromSignal = fromSignal->next, toSignal = toSignal->next) {
                toSignal->value_type = fromSignal->value_type;
            }
            if (to->transmitters != nullptr) {
                continue;
            }
            // Records are packed: the list is linked through plain
            // assignments, never through pointers to their fields.
            rxblk* last = nullptr;
            for (const rxblk* tx = from->transmitters; tx != nullptr; tx = tx->next) {
                const symblk* original = tx->symbol;
                symblk* node = original != nullptr ? TAVLO_GET_SYMBOL_NAME(nodes, original->name) : nullptr;
                rxblk* copy = node != nullptr ? TAVLO_CREATE_TX(node) : nullptr;
                if (copy == nullptr) {
                    continue;
                }
                if (last == nullptr) {
                    to->transmitters = copy;
                } else {
                    last->next = copy;
                }
                last = copy;
            }
        }
    }

    static void TakeOverEnvvars(const env_var_blk* from, env_var_blk* to) {
        for (; from != nullptr && to != nullptr; from = from->next, to = to->next) {
            to->data_length = from->data_length;
        }
    }
};

int Import(const std::string& module, const std::string& in, const std::string& out) {
    if (!Exists(in)) {
        std::fprintf(stderr, "%s: cannot be read\n", in.c_str());
        return kFailed;
    }
    const ImportSource source(in);
    if (source.Path().empty()) {
        std::fprintf(stderr, "%s: cannot be copied for the import\n", in.c_str());
        return kFailed;
    }
    TavloWriteManager manager(static_cast<void*>(nullptr));
    CompleteImporter importer(manager, module.c_str(), "Import");
    if (importer.mModule == nullptr) {
        std::fprintf(stderr, "%s: cannot be loaded as a converter module\n", module.c_str());
        return kFailed;
    }
    SetMessageFile(in);
    const char* db = nullptr;
    const unsigned int imported = importer.Import("Imported", &db, source.Path().c_str());
    FlushMessages();
    if (imported != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "%s: cannot be imported by %s (status %u)\n", in.c_str(),
                     module.c_str(), imported);
        return kFailed;
    }
    SetMessageFile(out);
    const unsigned int written = manager.WriteDatabase(db, out.c_str());
    FlushMessages();
    if (written != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "%s: cannot be written (status %u)\n", out.c_str(), written);
        return kFailed;
    }
    return kOk;
}

int Export(const std::string& module, const std::string& in, const std::string& out) {
    TavloManager manager(static_cast<void*>(nullptr));
    const char* db = nullptr;
    if (!OpenChecked(in, manager, db)) {
        return kFailed;
    }
    TavloExporter exporter(manager, module.c_str(), "Export");
    if (exporter.mModule == nullptr) {
        std::fprintf(stderr, "%s: cannot be loaded as a converter module\n", module.c_str());
        return kFailed;
    }
    if (exporter.mEntry == nullptr) {
        std::fprintf(stderr, "%s: has no entry \"Export\"\n", module.c_str());
        return kFailed;
    }
    SetMessageFile(out);
    const unsigned int exported = exporter.Export(db, out.c_str());
    FlushMessages();
    if (exported != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "%s: cannot be exported by %s (status %u)\n", out.c_str(),
                     module.c_str(), exported);
        return kFailed;
    }
    return kOk;
}

int Convert(const Invocation& line) {
    std::string module = line.Value("--module", "");
    const bool force = line.Given("--force");
    const Arguments& files = line.operands;
    if (files.size() != 2) {
        return line.Misused();
    }
    const std::string& in = files[0];
    const std::string& out = files[1];
    const bool importing = LowerExtension(out) == "dbc";
    if (importing == (LowerExtension(in) == "dbc")) {
        std::fprintf(stderr, "tavlo convert: exactly one of %s and %s must be a database file "
                     "(.dbc)\n", in.c_str(), out.c_str());
        return kUsage;
    }
    const std::string extension = LowerExtension(importing ? in : out);
    if (module.empty()) {
        module = FindModule(extension);
        if (module.empty()) {
            std::fprintf(stderr, "tavlo convert: no converter module for '.%s' (tavlo_%s%s); "
                         "name one with --module\n", extension.c_str(), extension.c_str(),
                         TAVLO_MODULE_SUFFIX);
            return kFailed;
        }
    }
    if (Exists(out)) {
        if (!force) {
            std::fprintf(stderr, "%s: exists; give --force to overwrite it\n", out.c_str());
            return kFailed;
        }
        std::remove(out.c_str());
    }
    return importing ? Import(module, in, out) : Export(module, in, out);
}

}  // namespace

const Subcommand kConvert{"convert", "IN OUT", "to and from other formats (.json)", &Convert,
                          kConvertHelp,
                          {{"-m,--module", "PATH", "the converter module to use", {}},
                           {"--force", nullptr, "overwrite OUT when it exists", {}}}};

}  // namespace tavlo::tool
