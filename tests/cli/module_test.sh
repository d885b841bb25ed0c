# What modules export, and modules that have to be refused.
exported=$(nm -D --defined-only "$MODULE" | awk '{ print $3 }')
[ "$exported" = trPluginStartup ] || fail "the module exports: $exported"

cat >frame.cpp <<'END'
#include <core/plugin.h>
#include <cstdlib>
extern "C" OV_API long trPluginStartup(trPluginStartupInfo* info) {
#ifdef CRASHES
  std::abort();
#endif
  trPluginSdkVersion version;
  version.PrivateInit();
  version.SetVersion(kOvSdkVersion + 10);
  trPluginToken token(info, version, "frame");
  token.AddClass("shader", "future_shader", trCreateNode<trBase>, trDestroyNode, "");
  return 1;
}
END
flags="-std=c++20 -shared -fPIC -I$SOURCE -L$BUILD"
[ -z "$SANITIZE" ] || flags="$flags -fsanitize=$SANITIZE"
mkdir future crashing broken other
# shellcheck disable=SC2086
{
  expect 0 "$CXX" $flags frame.cpp -o future/future.ovp -lovhost
  expect 0 "$CXX" $flags -DCRASHES frame.cpp -o crashing/crashing.ovp -lovhost
  echo 'int nothing;' >other.cpp
  expect 0 "$CXX" $flags other.cpp -o other/other.ovp
}
echo "no module at all" >broken/broken.ovp

for module in future crashing broken other; do
  export OV_PLUGIN_PATH=$PWD/$module
  expect 1 "$OV" nodes
  [ "$(grep -c '^error: ' err)" = 1 ] || fail "$module: not one error"
  shows "$module.ovp: "
  # The other modules are there all the same.
  prints compute_terrain
  ! grep -q future_shader out || fail "a refused module's class is listed"
done
OV_PLUGIN_PATH=$PWD/future expect 1 "$OV" nodes
shows "SDK version"
OV_PLUGIN_PATH=$PWD/crashing expect 1 "$OV" nodes
shows "crashed"
