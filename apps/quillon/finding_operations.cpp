// A command for each operation that finds things in pictures: quillon NAME IMAGE, or with what is
// looked for, quillon NAME TEMPLATE IMAGE. It is prepared once for all pictures.
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "arguments.h"
#include "commands.h"
#include "kit/images/image_files.h"
#include "kit/text/text.h"
#include "options.h"
#include "progress.h"

namespace quillon::app {
namespace {

struct Options {
  std::vector<std::string> images;
  std::string aside;
  Reading reading;
  Output output;
};

// What was found in one of several pictures.
struct FoundIn {
  std::string image;
  Findings findings;
};

void PrintAll(const Output& output, const std::vector<FoundIn>& all) {
  if (output.json) {
    Json pictures = Json::array();
    for (const auto& [image, findings] : all) {
      Json& picture = pictures.emplace_back(Json{{"image", image}});
      picture.update(ToJson(findings));
    }
    std::cout << JsonText(Json{{"pictures", pictures}}, 2) << '\n';
  } else if (output.csv) {
    Findings rows;
    for (const auto& [image, findings] : all) {
      rows.columns = findings.columns;
      for (std::vector<Cell> row : findings.rows) {
        row.emplace(row.begin(), image);
        rows.rows.push_back(std::move(row));
      }
    }
    rows.columns.insert(rows.columns.begin(), {"image", "image"});
    PrintCsv(rows, std::cout);
  } else {
    for (const auto& [image, findings] : all) {
      std::cout << (&image == &all[0].image ? "" : "\n") << Visible(image) << '\n';
      PrintText(findings, std::cout);
    }
  }
}

// The pictures are read and searched one after the other; `each` is called while all is there.
template <class Each>
void Search(const Operation& operation, const Options& options, ReadyOperation& ready,
            const Each& each) {
  for (const std::string& path : options.images) {
    Source image;
    image.Read(path, operation.inputs[0], options.reading);
    Content found;
    {
      const Progress progress("searching");
      ready.Run(image.View(), {}, found);
    }
    each(Searched{path, image.View(), operation.output, found.things});
  }
}

void Run(const Operation& operation, const Options& options, Values values) {
  const size_t count = options.images.size();
  if (count > 1 && (options.output.WantsPictures() || !options.aside.empty())) {
    throw Failure("pictures and pages are written of one image, not of " + std::to_string(count));
  }
  ReadyOperation ready(operation, std::move(values), {"", options.reading});
  if (count > 1) {
    std::vector<FoundIn> all;
    Search(operation, options, ready, [&](const Searched& searched) {
      all.push_back({searched.name, ready.Tell(searched)});
    });
    return PrintAll(options.output, all);
  }
  Search(operation, options, ready, [&](const Searched& searched) {
    if (!options.aside.empty()) {
      GreyImage aside;
      ready.Aside(aside);
      WriteImage(options.aside, aside);
    }
    const Findings findings = ready.Tell(searched);
    Print(options.output, findings);
    if (!options.output.WantsPictures()) return;
    Report report = ready.Page(searched.name);
    ready.Draw(searched, 0, report);
    WritePictures(options.output, report, findings);
  });
}

}  // namespace

void AddFindingOperation(Command top, const Operation& operation) {
  auto options = std::make_shared<Options>();
  const auto arguments = std::make_shared<Arguments>(operation);
  const Command command = AddOperation(top, operation);
  arguments->AddByPlace(command);
  AddPictureToRead(command, "IMAGE", options->images);
  AddReadingOptions(command, options->reading);
  arguments->AddOptions(command);
  if (operation.aside.option) {
    command
        .AddFileToWrite(operation.aside.option, options->aside, operation.aside.summary,
                        CheckPictureName)
        .ShownAs("FILE");
  }
  AddOutputOptions(command, options->output);
  command.Runs([&operation, options, arguments] { Run(operation, *options, arguments->Read()); });
}

}  // namespace quillon::app
