#include "programtable.h"

namespace Velmar::Package {

using namespace Cli;

namespace {

constexpr Option KeyFile =
    Option("key-file", "Take the key from this file; the published demonstration key unless set.")
        .file("FILE");
constexpr Option ForceFile = Option("force", "Replace what is at OUT.");

constexpr Argument CreateArguments[] = {
    { "MANIFEST", "A JSON file that describes the package; the plain files stand beside it.",
      ValueKind::File },
    { "OUTDIR", "The package folder to make.", ValueKind::Folder },
};
constexpr const char *CreateUsage[] = { "MANIFEST OUTDIR [options]" };
constexpr Option CreateOptions[] = {
    KeyFile,
    Option("force", "Replace what is at OUTDIR, if that is a package or an empty folder."),
};

constexpr Argument ImageArguments[] = {
    { "FILE", "An upgrade image.", ValueKind::File },
};
constexpr const char *ImageUsage[] = { "FILE [options]" };
constexpr Option ImageOptions[] = { Option("json", "Write JSON.") };

constexpr Argument EncipherArguments[] = {
    { "IN", "The plain file.", ValueKind::File },
    { "OUT", "The enciphered file to make.", ValueKind::File },
};
constexpr Argument DecipherArguments[] = {
    { "IN", "The enciphered file.", ValueKind::File },
    { "OUT", "The plain file to make.", ValueKind::File },
};
constexpr const char *ConvertUsage[] = { "IN OUT [options]" };
constexpr Option ConvertOptions[] = { KeyFile, ForceFile };

constexpr Verb Verbs[] = {
    { "create", "Make a package folder of plain files.",
      "Makes a package folder of the plain files that a manifest names, and enciphers those that "
      "are enciphered in a package. The folder gets its name when it is whole.",
      CreateUsage, CreateArguments, CreateOptions },
    { "image", "Show an upgrade image, and check all of it.",
      "Shows header and table of an upgrade image, and checks all of it.", ImageUsage,
      ImageArguments, ImageOptions },
    { "encipher", "Encipher a file.", "Enciphers a file, as .dat files of a package are.",
      ConvertUsage, EncipherArguments, ConvertOptions },
    { "decipher", "Decipher a file.", "Deciphers a file of a package.", ConvertUsage,
      DecipherArguments, ConvertOptions },
};

constexpr const char *Usage[] = { "VERB [options]" };
constexpr Option ProgramOptions[] = { helpOption(), versionOption().letter('v') };
constexpr Option Common[] = { helpOption() };

constexpr ExitStatus Statuses[] = {
    { 0, "Done; for image: the image is sound." },
    { 64, "The command line is wrong." },
    { 65, "An input is unsound: a wrong manifest, an unsound image, a damaged file, another key." },
    { 66, "An input is missing or cannot be read." },
    { 73, "The output is there already, or cannot be made at that place." },
    { 74, "Reading or writing failed." },
};

constexpr Example Examples[] = {
    { "Make a package and look what a device would get of it:",
      "velmar-package create manifest.json package\n"
      "velmar-upgrade inspect package --model \"Strata S8\"" },
    { "Check an image that was left in a package:", "velmar-package image package/upgrade" },
};

constexpr const char *SeeAlso[] = { "velmar-package-folder(5)", "velmar-upgrade(1)",
                                    "velmar-device(1)" };

} // namespace

constexpr Program PackageProgram = {
    "velmar-package",
    "Makes upgrade packages and looks into them.",
    "Makes upgrade packages for networked display-processing devices, and looks into them.",
    Usage,
    {},
    ProgramOptions,
    Verbs,
    Common,
    {},
    nullptr,
    Statuses,
    {},
    {},
    {},
    Examples,
    SeeAlso,
};

} // namespace Velmar::Package
