// quillon workbench: opens the page that lies beside this program.
#include <filesystem>
#include <memory>

#include "apps/quillon/system/browser.h"
#include "apps/quillon/system/standard_streams.h"
#include "commands.h"

namespace quillon::app {
namespace {

constexpr const char* kPage = "workbench.html";

// Where packages lay it down, bin/quillon and share/quillon/workbench.html; or both in one folder.
std::string FindPage() {
  const std::filesystem::path program = ProgramPath();
  const std::filesystem::path folder = program.parent_path();
  const std::filesystem::path installed = folder.parent_path() / "share" / "quillon" / kPage;
  for (const auto& page : {installed, folder / kPage}) {
    std::error_code error;
    if (std::filesystem::is_regular_file(page, error)) return page.string();
  }
  throw Failure("the workbench is not installed with this program: there is neither '" +
                installed.string() + "' nor '" + (folder / kPage).string() +
                "'; scripts/workbench builds it");
}

void Open(bool isOnlyPrinted) {
  const std::string page = FindPage();
  PrintAtOnce(page + "\n");
  if (isOnlyPrinted) return;
  const std::string problem = OpenInBrowser(page);
  if (!problem.empty()) {
    throw Failure("no browser could be asked to open '" + page + "': " + problem +
                  "; open the file in one");
  }
}

}  // namespace

void AddWorkbench(Command top) {
  auto isOnlyPrinted = std::make_shared<bool>(false);
  const Command command =
      top.Add("workbench",
              "Open the workbench in the browser: a page that teaches, tunes and judges recipes, "
              "and needs no network")
          .Under("general");
  command.AddFlag("--print", *isOnlyPrinted, "only print where the page is");
  command.Runs([isOnlyPrinted] { Open(*isOnlyPrinted); });
}

}  // namespace quillon::app
