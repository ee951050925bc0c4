// tessiva hints JSON: a hints dictionary translated into service options.
#include "Command.h"
#include "JsonConversion.h"
#include "tessiva/KVLegacyHelper.h"

#include <iostream>

namespace tessiva::tool {

int runHints(Arguments arguments) {
    expectArgumentCount(arguments, 1, 1, "hints JSON");
    const ObRef<ObDictionary> hints = ob_cast<ObDictionary>(objectFromJson(arguments[0]));
    if (!hints)
        throw UsageError("the hints must be a JSON object");

    ObRef<ObError> error;
    const ObRef<ObMutableDictionary> options =
        KVLegacyHelper::optionsFromVRHints_error(hints, &error);
    if (!options) {
        std::cerr << "error: " << error->localizedDescription()->text() << '\n';
        return exitLibraryError;
    }
    std::cout << options->description()->text() << '\n';
    return exitSuccess;
}

} // namespace tessiva::tool
