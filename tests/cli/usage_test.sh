# Exit codes and messages of the program: usage, projects, outputs.
expect 0 "$OV" version
prints "ov "
cp out version
expect 0 "$OV" --version
cmp -s out version || fail "--version says something else"
expect 0 "$OV" help render
prints "Example:"
expect 0 "$OV" version --json
prints '"sdk_version":40530'
for command in render check new nodes describe eval press heightfield info version test; do
  expect 0 "$OV" $command --help
  prints "Example:"
done
expect 2 "$OV"
expect 2 "$OV" no_such_command
expect 2 "$OV" render
expect 2 "$OV" nodes --no-such-option

# Projects
expect 0 "$OV" new scene.ovd --like plain --seed 1
expect 0 "$OV" new - --like plain --seed 1
cmp -s out scene.ovd || fail "two projects of one seed differ"
cp scene.ovd before.ovd
expect 4 "$OV" new scene.ovd
shows "exists already"
cmp -s scene.ovd before.ovd || fail "an existing project was touched"
expect 4 "$OV" new no_such_folder/scene.ovd
expect 3 "$OV" check missing.ovd
shows missing.ovd
echo "<ombrivex_project" >broken.ovd
expect 3 "$OV" check broken.ovd
shows broken.ovd
expect 3 "$OV" render broken.ovd -o broken.png
[ ! -e broken.png ] || fail "a picture of a broken project"
echo '<ombrivex_project><of_no_module name="X"/><render/></ombrivex_project>' >foreign.ovd
expect 3 "$OV" render foreign.ovd -o foreign.png --dry-run
shows of_no_module
expect 0 "$OV" render foreign.ovd -o foreign.png --dry-run --allow-missing

# Landscapes: of every kind, sound, another for another seed.
expect 0 "$OV" new --list
cp out kinds
for kind in mountains lake desert planet plain; do
  grep -q "^$kind " kinds || fail "$kind isn't listed"
  expect 0 "$OV" new $kind.ovd --like $kind --seed 5
  expect 0 "$OV" check $kind.ovd
  prints "0 errors, 0 warnings: sound"
  expect 0 "$OV" new $kind.again.ovd --like $kind --seed 5
  cmp -s $kind.ovd $kind.again.ovd || fail "one seed gives two landscapes"
  expect 0 "$OV" new $kind.ovd --like $kind --seed 6 --overwrite
  ! cmp -s $kind.ovd $kind.again.ovd || fail "two seeds give one landscape"
done
expect 2 "$OV" new elevation.ovd --like elevation
expect 3 "$OV" new elevation.ovd --like elevation no_such.tif
[ ! -e elevation.ovd ] || fail "a landscape from nothing"
expect 3 "$OV" check scene.ovd missing.ovd
prints "scene.ovd: 9 nodes"
shows missing.ovd

# Wrong words get the right ones.
nearly() {
  expect "$1" "$OV" $2
  shows "did you mean \"$3\"?"
}
nearly 2 "rendr scene.ovd" render
nearly 2 "render scene.ovd -o x.png --widht 20" --width
nearly 2 "help rendre" render
nearly 2 "new x.ovd --like dessert" desert
nearly 1 "describe lambert_shadr" lambert_shader
nearly 1 "info scene.ovd --set Camra.near_clip=1" Camera
nearly 1 "info scene.ovd --set Camera.naer_clip=1" near_clip
nearly 1 "info scene.ovd --set Render.engine=Standrad" Standard
echo '<ombrivex_project><cmaera name="C" naer_clip="1"/><camera name="D" naer_clip="1"/></ombrivex_project>' >words.ovd
expect 3 "$OV" check words.ovd
shows 'did you mean "camera"?'
shows 'did you mean "near_clip"?'

# Options of a render
render="$OV render scene.ovd --dry-run"
expect 0 $render -o "picture_####.png" -f 1-5x2,9
[ "$(grep -c '^frame ' out)" = 4 ] || fail "not four frames"
prints "picture_0009.png"
expect 0 $render -o "picture_%03d.png" -f 7
prints "picture_007.png"
expect 0 $render -o p#.png -f 3-1
prints "frame 3 -> p3.png"
expect 0 $render -o p#.png -f " 1..3, 5 "
[ "$(grep -c '^frame ' out)" = 4 ] || fail "not four frames"
expect 0 $render -o p#.png -f all
[ "$(grep -c '^frame ' out)" = 100 ] || fail "not the project's frames"
expect 0 "$OV" render --layers depth --crop 0 0 5 5 --set Camera.near_clip=1 scene.ovd --dry-run -o order.exr
expect 0 $render -o p.png --tile 2/3 --width 60 --height 100
prints "rows 33 to 66"
expect 0 $render -o p.png --crop 10 20 30 40 --tile 1/2
prints "rows 20 to 30, columns 10 to 30"
for wrong in "-f 1-" "-f 5,,6" "-f x" "-f 1-9999999999" "-f 1-2000000" "--tile 0/3" "--tile 4/3" "--tile 1/2x" \
  "--crop 0 0 0 5" "--crop 5 5 4 4" "--crop 0 0 99999 1" "--memory lots" "--memory -1G" "--time 0" "--layers depth" "--width 0" \
  "--samples -1" "--noise -1" "--resume maybe" "--set nonsense" "--skip-existing --overwrite"; do
  # shellcheck disable=SC2086
  expect 2 $render -o p#.png $wrong
  [ -s err ] || fail "no message: $wrong"
done
expect 2 $render -o layers.exr --layers nothing
shows "nothing"
expect 0 $render -o layers.exr --layers depth,normal
expect 2 $render -o several.png -f 1-2
expect 2 $render -o picture.xyz
expect 4 $render -o no_such_folder/picture.png
mkdir folder.png
expect 4 $render -o folder.png
# An empty file is no finished picture.
touch p1.png
expect 0 $render -o p#.png -f 1-2 --skip-existing
prints "p1.png, 960 x 540 pixels, rows 0 to 540, columns 0 to 960"
grep -q "skipped" out && fail "an empty file was taken for a picture"

# Values from the command line
expect 1 "$OV" info scene.ovd --set "Nobody.position=0 0 0"
shows 'no node "Nobody"'
expect 1 "$OV" info scene.ovd --set "Camera.no_such_parameter=1"
shows "no_such_parameter"
for value in nan inf 1e999 "1 2" "1 2 x" ""; do
  expect 1 "$OV" info scene.ovd --set "Camera.position=$value"
  shows position
done
echo '{"Camera.position": [1, -2.5, 3], "Render": {"samples": 4, "soft_clip": false}}' >vars.json
expect 0 "$OV" info scene.ovd --values --vars vars.json
prints "position = 1 -2.5 3"
prints "samples = 4"
prints "soft_clip = 0"
expect 0 "$OV" info scene.ovd --values --set "Camera.position=1, -2.5,3" --set Render.engine=path --set /.end_frame=7
prints "position = 1 -2.5 3"
prints "engine = 1"
prints "end_frame = 7"
echo '[1, 2]' >vars.json
expect 3 "$OV" info scene.ovd --vars vars.json
expect 0 "$OV" info scene.ovd --json
prints '"class": "planet"'

# Names are printed on one line and without what steers a terminal or turns the direction of writing.
echo '<ombrivex_project><group name="a&#10;b&#x202e;c&#x9b;d"/></ombrivex_project>' >names.ovd
expect 0 "$OV" info names.ovd --values
prints 'a\nb\u202ec\x9bd'
expect 0 "$OV" info names.ovd --json
prints 'a\nb\u202ec\u009bd'

# Messages as JSON lines
expect 3 "$OV" check missing.ovd --log json
grep -q '^{"level":"error",.*}$' err || fail "no JSON message"

# Links and graphs
echo "0 0 0" >points
expect 0 "$OV" check scene.ovd
expect 3 "$OV" check scene.ovd --set "Render.camera=Nobody"
shows "leads to no node"
expect 3 $render -o p.png --set "Render.camera=Nobody"
shows "leads to no node"
expect 0 $render -o p.png --set "Render.camera=Nobody" --allow-missing
expect 3 "$OV" check scene.ovd --set "Render.camera=Sun"
shows "wrong kind"
expect 3 "$OV" check scene.ovd --set "Power fractal shader v3 01.input_node=Compute terrain 01"
shows "feeds itself"
expect 3 $render -o p.png --set "Power fractal shader v3 01.input_node=Compute terrain 01"
shows "feeds itself"
awk 'BEGIN { print "<ombrivex_project>"
  for (i = 1; i <= 513; ++i) printf "<lambert_shader name=\"S%d\" input_node=\"S%d\"/>\n", i, i + 1
  print "</ombrivex_project>" }' >deep.ovd
expect 3 "$OV" check deep.ovd
shows "513 shaders deep"
expect 1 "$OV" eval deep.ovd S1 points
shows "more than 512 shaders deep"
expect 0 "$OV" eval deep.ovd S2 points
echo '<ombrivex_project/>' >empty.ovd
expect 0 "$OV" check empty.ovd
for what in camera light object; do shows "no $what"; done

# Buttons
node="Power fractal shader v3 01"
expect 1 "$OV" press scene.ovd "$node" nothing
shows randomise_button
expect 0 "$OV" press scene.ovd "$node" randomise_button -o pressed.ovd --seed 2
expect 0 "$OV" press scene.ovd "$node" "Random Seed" -o again.ovd --seed 2
cmp -s pressed.ovd again.ovd || fail "one seed gives two results"
[ "$(diff scene.ovd pressed.ovd | grep -c '^>')" = 1 ] || fail "the button changed more or less than the seed"
cmp -s scene.ovd before.ovd || fail "-o left the project changed"

# Arguments of `ov test` go to ctest as they are.
expect 0 "$OV" test -N -R "^usage_test$" --output-log log
prints "Total Tests: 1"
[ -s log ] || fail "no log of ctest"
