#include "installation/StagedMachine.h"

#include "installation/Installation.h"
#include "installation/PathParts.h"

LayerPath PathIn(const StagedMachine& staged, const std::string& path) {
    for (const auto& [directory, base] :
         {std::pair<std::string, const Descriptor*>(staged.installDir.toStdString(), &staged.tree),
          {etcDirectory, &staged.etc},
          {binDirectory, &staged.bin}}) {
        if (path == directory)
            return {base->Number(), ""};
        if (IsBelow(path, directory))
            return {base->Number(), path.substr(directory.size() + 1)};
    }
    return {};
}
