# What modules export, and modules that have to be refused.
exported=$(nm -D --defined-only "$MODULE" | awk '{ print $3 }')
[ "$exported" = trPluginStartup ] || fail "the module exports: $exported"

# A module that goes wrong in the way that the environment asks for.
cat >bad.cpp <<'END_OF_MODULE'
#include <core/plugin.h>
#include <unistd.h>
#include <cstdlib>
#include <stdexcept>
#include <string>
static bool Is(const char* way) {
  const char* const asked = std::getenv("BAD");
  return asked && std::string(asked) == way;
}
struct FutureShader : trBase {
  FutureShader() {
    if (Is("falling")) std::abort();
    if (Is("reckless")) throw std::runtime_error("a limit");
  }
};
struct AtUnloading {
  ~AtUnloading() {
    if (Is("parting")) std::abort();
  }
} atUnloading;
static trBase* MakesNothing() { return nullptr; }
extern "C" OV_API long trPluginStartup(trPluginStartupInfo* info) {
  if (Is("crashing")) std::abort();
  if (Is("throwing")) throw std::runtime_error("no luck");
  if (Is("odd")) throw 5;
  if (Is("ending")) _exit(0);
  if (Is("closing") || Is("hanging")) closefrom(0);
  if (Is("closing")) std::exit(0);
  while (Is("hanging")) pause();
  if (Is("silent")) return 1;
  trPluginSdkVersion version;
  version.PrivateInit();
  version.SetVersion(Is("future") ? kOvSdkVersion + 10 : kOvSdkVersion);
  trPluginToken token(info, version, "bad");
  token.AddClass("shader", Is("usurping") ? "planet" : Is("greedy") ? "group" : "future_shader",
                 Is("barren") ? MakesNothing : trCreateNode<FutureShader>, trDestroyNode, "");
  if (Is("diverting")) trClasses.AddClassNameRedirect("planet", "future_shader");
  return Is("lying") ? 0 : 1;
}
END_OF_MODULE
compiler="$CXX -std=c++20 -shared -fPIC -I$SOURCE -L$BUILD"
[ -z "$SANITIZE" ] || compiler="$compiler -fsanitize=$SANITIZE"
# shellcheck disable=SC2086
expect 0 $compiler bad.cpp -o bad.so -lovhost

# refused NAME TEXT: the module of the name costs one error that names it and has the text, and nothing else.
refused() {
  OV_PLUGIN_PATH=$PWD/$1 BAD=$1 expect 1 "$OV" nodes
  [ "$(grep -c '^error: ' err)" = 1 ] || fail "$1: not one error"
  shows "$1/$1.ovp: "
  shows "$2"
  # The other modules are there all the same, unchanged.
  prints compute_terrain
  prints planet
  ! grep -q future_shader out || fail "$1: a refused module's class is listed"
}
while read -r name text; do
  mkdir "$name"
  cp bad.so "$name/$name.ovp"
  refused "$name" "$text"
done <<'END_OF_WAYS'
future SDK version
silent SDK version
lying returned 0 instead of 1
crashing crashed while it was loaded
throwing threw an exception when it was started up: no luck
odd threw an exception
ending ended the process while it was loaded
closing ended the process while it was loaded
hanging didn't come to an end within
falling crashed while it made a node of its class future_shader
reckless threw an exception: a limit
barren makes no node of its class future_shader
parting crashed while it was unloaded
usurping registers "planet", which is
greedy registers "group", which is this program's own
diverting registers "planet", which is
END_OF_WAYS

mkdir broken other pipe same
echo "no module at all" >broken/broken.ovp
refused broken "can't be loaded"
echo 'int nothing;' >other.cpp
# shellcheck disable=SC2086
expect 0 $compiler other.cpp -o other/other.ovp
refused other "not a module"
mkfifo pipe/pipe.ovp
refused pipe "is not a file"

# Another's module can't stand in for ours; ours under another path is the same module.
cp bad.so same/ovstd.ovp
OV_PLUGIN_PATH=$PWD/same expect 1 "$OV" nodes
shows "ovstd.ovp: not loaded"
OV_PLUGIN_PATH=$BUILD expect 0 "$OV" nodes
mkdir good better
cp bad.so good/good.ovp
cp bad.so better/good.ovp
OV_PLUGIN_PATH=$PWD/good:$PWD/better expect 0 "$OV" nodes
prints future_shader
