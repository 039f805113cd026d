// cmd_basic.cpp - the basic subcommands: `version`, `units` (lengths and
// resolutions between units), `prefs` (show, save, load and set the
// preference flags) and `paths` (the installation's directories).
//
// Relies on the module's start-up having run at load: g_Flags holds the
// defaults and the profile store's preferences, g_AppPath the directories.
#include "command.h"
#include "args.h"

#include <tqbase/tqbase.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace tqtool;

namespace {

int Fail(const std::string& message) {
  std::fprintf(stderr, "tqbase %s: %s\n", tqtool::CommandName().c_str(), message.c_str());
  tqtool::ToolExit(1);
  return 1;
}

// ---------------------------------------------------------------------------
// Units as typed on the command line

struct UnitsOptions {
  std::vector<std::string> args;
  std::string res;
  int digits = 4;
};

int RunUnits(const UnitsOptions& o) {
  double value = 0;
  std::string valueUnit;
  if (o.args.empty() || !SplitQuantity(o.args[0], &value, &valueUnit))
    return Fail("'" + (o.args.empty() ? std::string() : o.args[0]) + "' is not a number");
  // VALUE FROM TO, or VALUE+FROM TO.
  std::vector<std::string> names;
  if (!valueUnit.empty()) names.push_back(valueUnit);
  names.insert(names.end(), o.args.begin() + 1, o.args.end());
  if (names.size() != 2) return Fail("give a value, the unit it is in and the unit to convert to, e.g. 25.4 mm px");
  UnitName from, to;
  if (!FindUnit(names[0], &from)) return Fail("unknown unit '" + names[0] + "' (" + kUnitHelp + ")");
  if (!FindUnit(names[1], &to)) return Fail("unknown unit '" + names[1] + "' (" + kUnitHelp + ")");
  if (from.resolution != to.resolution)
    return Fail(std::string("cannot convert ") + (from.resolution ? "a resolution" : "a length") + " (" +
                from.name + ") into " + (to.resolution ? "a resolution" : "a length") + " (" + to.name + ")");
  if (from.resolution) {
    if (!(value > 0)) return Fail("a resolution must be greater than 0");
    double r = ConvertRes(value, from.unit, to.unit, FALSE);
    std::printf("%s %s = %s %s\n", Number(value, o.digits).c_str(), kResShort[from.unit],
                Number(r, o.digits).c_str(), kResShort[to.unit]);
    return 0;
  }
  // The resolution for pixel conversions: --res, else the user's default.
  double res = g_Flags.dDefRes;
  int resUnit = g_Flags.ResUnit;
  bool given = !o.res.empty();
  if (given) {
    std::string unitText;
    if (!SplitQuantity(o.res, &res, &unitText)) return Fail("'" + o.res + "' is not a resolution, e.g. 300dpi");
    if (!unitText.empty()) {
      UnitName u;
      if (!FindUnit(unitText, &u) || !u.resolution)
        return Fail("unknown resolution unit '" + unitText + "' (dpi, dpsm, dpmm, dpcm, dpm)");
      resUnit = u.unit;
    }
  }
  if (!IsValidRes(res, resUnit))
    return Fail("resolution " + Number(res, o.digits) + " " + kResShort[resUnit] +
                " is outside 1 to 20000 dpi");
  double r = ConvertSize(value, from.unit, to.unit, res, resUnit, FALSE);
  std::printf("%s %s = %s %s", Number(value, o.digits).c_str(), kSizeShort[from.unit],
              Number(r, o.digits).c_str(), kSizeShort[to.unit]);
  if (from.unit == SIZEUNIT_PIXEL || to.unit == SIZEUNIT_PIXEL)
    std::printf("  (at %s %s%s)", Number(res, o.digits).c_str(), kResShort[resUnit],
                given ? "" : ", the default resolution");
  std::printf("\n");
  return 0;
}

void SetupUnits(CLI::App& app) {
  auto opts = std::make_shared<UnitsOptions>();
  CLI::App* cmd = app.add_subcommand("units", "Convert a length or a resolution between units");
  cmd->footer(std::string("Examples:\n  tqbase units 25.4 mm px --res 300dpi\n  tqbase units 11.8dpmm dpi\n"
                          "  tqbase units 1800 mm in\n\nUnits: ") +
              kUnitHelp + ". Pixel conversions use --res, else the default resolution of the preferences.");
  cmd->add_option("args", opts->args, "VALUE [FROM] TO, e.g. 25.4 mm px or 300dpi dpmm")->required()->expected(2, 3);
  cmd->add_option("--res", opts->res, "resolution for pixel conversions, e.g. 300dpi or 11.8dpmm");
  cmd->add_option("--digits", opts->digits, "decimals to show (0 to 10)")->check(CLI::Range(0, 10));
  cmd->callback([opts] { RunUnits(*opts); });
}

// ---------------------------------------------------------------------------
// Version, paths, preferences

void PrintVersion() {
  std::printf("%s\n", g_strAppVersion.GetString());
  std::printf("library folder: %s\n", g_AppPath.strAppPath.GetString());
}

void SetupVersion(CLI::App& app) {
  CLI::App* cmd = app.add_subcommand("version", "Show the library's version");
  tqtool::Examples(cmd, {"tqbase version"});
  cmd->callback([] { PrintVersion(); });
}

void PrintPaths(bool all) {
  for (int i = 0; i < APP_PATH_COUNT; ++i) {
    if (!all && i != APP_PATH_ROOT && i != APP_PATH_PROFILE && i != APP_PATH_INPUT && i != APP_PATH_PRINTER)
      continue;
    const char* name = CAppPath::GetPathName(i);
    std::printf("  %-10s %s\n", *name ? name : "(install)", g_AppPath.GetPath(i).GetString());
  }
}

void SetupPaths(CLI::App& app) {
  auto create = std::make_shared<bool>(false);
  CLI::App* cmd = app.add_subcommand("paths", "List the data directories under the library's folder");
  tqtool::Examples(cmd, {"tqbase paths", "tqbase paths --create"});
  cmd->add_flag("--create", *create, "create the directories that are missing");
  cmd->callback([create] {
    PrintPaths(true);
    if (*create) {
      g_Error.ClearError();
      g_AppPath.CreatePath();
      if (g_Error.IsError()) Fail(tqtool::LastErrorText());
    }
  });
}

void PrintPrefs(const AGFLAGS& flags) {
  std::printf("[GlobalFlags]\n");
  for (int k = 0; k < AGFLAGS::GetKeyCount(); ++k)
    std::printf("%s=%s\n", AGFLAGS::GetKeyName(k), flags.GetKeyValue(k).GetString());
}

struct PrefsOptions {
  std::string file, key, value;
};

void SetupPrefs(CLI::App& app) {
  auto opts = std::make_shared<PrefsOptions>();
  CLI::App* cmd = app.add_subcommand("prefs", "Show, save, load or set the preference flags");
  tqtool::Examples(cmd, {"tqbase prefs show", "tqbase prefs set nLRSpace 40"});
  cmd->require_subcommand(1);

  CLI::App* show = cmd->add_subcommand("show", "Show the preferences (defaults, then the profile store)");
  tqtool::Examples(show, {"tqbase prefs show"});
  show->callback([] {
    std::printf("; profile store: %s\n", AProfile::GetAppProfilePath().GetString());
    PrintPrefs(g_Flags);
  });

  CLI::App* save = cmd->add_subcommand("save", "Save the preferences to an INI file (section GlobalFlags)");
  tqtool::Examples(save, {"tqbase prefs save flags.ini"});
  save->add_option("FILE", opts->file, "INI file to write")->required();
  save->callback([opts] {
    if (!g_Flags.SaveToProfile(opts->file.c_str())) {
      Fail(tqtool::LastErrorText());
      return;
    }
    std::printf("saved %d keys to %s\n", AGFLAGS::GetKeyCount(), opts->file.c_str());
  });

  CLI::App* load = cmd->add_subcommand("load", "Load the preferences from an INI file and show them");
  tqtool::Examples(load, {"tqbase prefs load flags.ini"});
  load->add_option("FILE", opts->file, "INI file to read")->required();
  load->callback([opts] {
    if (!g_Flags.LoadFromProfile(opts->file.c_str())) {
      Fail(tqtool::LastErrorText());
      return;
    }
    PrintPrefs(g_Flags);
  });

  CLI::App* set = cmd->add_subcommand("set", "Set one preference and save it to the profile store");
  tqtool::Examples(set, {"tqbase prefs set nLRSpace 40"});
  set->add_option("KEY", opts->key, "the key, as `prefs show` lists it")->required();
  set->add_option("VALUE", opts->value, "the new value")->required();
  set->callback([opts] {
    if (!g_Flags.SetKeyValue(opts->key.c_str(), opts->value.c_str())) {
      Fail("'" + opts->value + "' is not a value for '" + opts->key + "' (see `tqbase prefs show` for the keys)");
      return;
    }
    if (!g_Flags.SaveToProfile()) {
      Fail(tqtool::LastErrorText());
      return;
    }
    std::printf("%s=%s saved to %s\n", opts->key.c_str(), opts->value.c_str(),
                AProfile::GetAppProfilePath().GetString());
  });
}

}  // namespace

TQ_REGISTER_COMMAND("00-version", SetupVersion);
TQ_REGISTER_COMMAND("10-units", SetupUnits);
TQ_REGISTER_COMMAND("11-prefs", SetupPrefs);
TQ_REGISTER_COMMAND("12-paths", SetupPaths);
