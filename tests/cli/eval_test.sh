# `ov eval`: forms of points and results, and what it refuses.
cat >scene.ovd <<'END'
<ombrivex_project>
  <constant_colour name="Colour" colour="0.25 0.5 1"/>
  <constant_scalar name="Number" value="3"/>
  <get_position name="Position"/>
</ombrivex_project>
END
printf '# points\nx,y,z\n1,2,3\n# a remark\n\n-.5 0 1e3 0 0 2\n' >points
expect 0 "$OV" eval scene.ovd Position points
[ "$(wc -l <out)" = 3 ] || fail "not a heading and two results"
prints "1,2,3,0,1,2,3,"
prints "-0.5,0,1000,0,-0.5,0,1000,"
grep -q ',1,2,3$' out || fail "the vector of the position isn't the position"
expect 0 "$OV" eval scene.ovd Colour points
prints ",0.25,0.5,1,"
printf '[1, 2, 3]\n{"point": [4, 5, 6], "normal": [0, 0, 1]}\n{"x": 7, "y": 8, "z": 9, "nx": 0, "ny": 0, "nz": 1}\n' >points.json
expect 0 "$OV" eval scene.ovd Number points.json
[ "$(grep -c '^{.*"scalar":3.0.*}$' out)" = 3 ] || fail "not three JSON results"
prints '"point":[7.0,8.0,9.0]'
code=0
echo "1 2 3" | "$OV" eval scene.ovd Number >out 2>err || code=$?
[ $code = 0 ] || fail "points from standard input"
expect 0 "$OV" eval scene.ovd Number points -o results.csv
[ -s results.csv ] || fail "no file of results"

for line in "1 2" "1 2 3 4" "a b c d" "1 2 nan" "1 2 1e999" "1 2 3 0 0 0" "[1, 2" '{"normal": [1, 2, 3]}' '{"x": 1, "y": 2}'; do
  printf '0 0 0\n%s\n' "$line" >wrong
  expect 1 "$OV" eval scene.ovd Number wrong
  shows "line 2"
  [ ! -s out ] || fail "half of the results"
done
expect 1 "$OV" eval scene.ovd Nobody points
expect 3 "$OV" eval scene.ovd Number no_such_file
expect 4 "$OV" eval scene.ovd Number points -o no_such_folder/results

# An area as a picture, whatever the number of threads; also with numbers that begin with a dot.
expect 0 "$OV" eval scene.ovd Position --grid -.5 -.5 .5 .5 40 20 -o one.png --threads 1
expect 0 "$OV" eval scene.ovd Position --grid -.5 -.5 .5 .5 40 20 -o four.png --threads 4
cmp -s one.png four.png || fail "the picture depends on the number of threads"
for wrong in "0 0 1 1 0 5" "0 0 1 1 5 -5" "0 0 1 1 1e6 1e6" "0 0 1 1 1.5 2" "0 0 inf 1 2 2"; do
  # shellcheck disable=SC2086
  expect 2 "$OV" eval scene.ovd Position --grid $wrong -o wrong.png
  [ ! -e wrong.png ] || fail "a picture of $wrong"
done
expect 2 "$OV" eval scene.ovd Position --grid 0 0 1 1 4 4
expect 4 "$OV" eval scene.ovd Position --grid 0 0 1 1 4 4 -o no_such_folder/wrong.png

# A graph that feeds itself ends in one message.
sed 's|</ombrivex_project>|  <lambert_shader name="A" input_node="B"/>\n  <lambert_shader name="B" input_node="A"/>\n&|' scene.ovd >loop.ovd
expect 1 "$OV" eval loop.ovd A points
shows "feeds itself"

# So does one whose shaders keep much while they ask for a mix; and a deep network of such shaders is rendered.
sed 's|</ombrivex_project>|  <merge_shader name="A" input_node="B" shader_A="B" mix_controller="A"/>\n  <lambert_shader name="B"/>\n&|' scene.ovd >loop.ovd
expect 1 "$OV" eval loop.ovd A points
shows "feeds itself"
awk 'BEGIN { print "<ombrivex_project>"
  for (i = 1; i < 500; ++i) printf "<merge_shader name=\"S%d\" merge_displacement=\"0\" input_node=\"S500\" shader_A=\"S500\" mix_controller=\"S%d\"/>\n", i, i + 1
  print "<lambert_shader name=\"S500\" diffuse_colour=\"0.5 0.5 0.5\"/><camera name=\"Camera\" position=\"0 5 0\" rotation=\"-90 0 0\"/>"
  print "<planet name=\"Planet\" surface_shader=\"S1\"/><render name=\"Render\" camera=\"Camera\"/></ombrivex_project>" }' >deep.ovd
expect 0 "$OV" eval deep.ovd S1 points
expect 0 "$OV" render deep.ovd -o deep.png --width 2 --height 2 -s 1

# An evaluation happens at the project's frame and has its camera's view; so do the nodes that a render prepares.
cat >frames.ovd <<'END'
<ombrivex_project current_frame="2">
  <camera name="Camera" position="0 0 -10"/>
  <image_map_shader name="Sequence" image_filename="sequence_##.png" smooth_interpolation="0"/>
  <distance_shader name="Depth" near_distance="0" far_distance="40" distance_mode="1"/>
</ombrivex_project>
END
expect 0 "$OV" eval scene.ovd Colour --grid 0 0 1 1 2 2 -o sequence_02.png
echo 0.5 0 0.5 >points
expect 0 "$OV" eval frames.ovd Sequence points
[ ! -s err ] || fail "another frame's picture was looked for"
expect 0 "$OV" render frames.ovd -o frame.png --width 8 --height 4 -s 1 -f 2
! grep -q "sequence_" err || fail "another frame's picture was looked for by the render"
echo 5 3 0 >points
expect 0 "$OV" eval frames.ovd Depth points
prints ",0.25,0.25,0.25,"
