# What a program reads off `ov nodes` and `ov describe`.
expect 0 "$OV" nodes --json
prints '"class": "planet"'
# A row of the module's catalogue is either built or missing.
expect 0 "$OV" nodes
cp out built
expect 0 "$OV" nodes --missing
cp out missing
sed -n 's/^\([^#|]*\) | \([^ ]*\) | .*/\2 \1/p' "$SOURCE/module/catalogue.txt" | sed 's/ *$//' | sort >planned
[ "$(grep -c . planned)" = 106 ] || fail "the catalogue has lost rows"
cat built missing | sed 's/  */ /; s/ *$//' | sort | comm -12 planned - >told
cmp -s planned told || fail "rows are neither built nor missing"
sed 's/  */ /; s/ *$//' built | sort >built.sorted
sed 's/  */ /; s/ *$//' missing | sort | comm -12 built.sorted - >both
[ ! -s both ] || fail "a built class is listed as missing"

expect 0 "$OV" describe --json lambert_shader compute_terrain
[ "$(grep -c '"implementation"' out)" = 2 ] || fail "not two classes"
prints '"implementation": "LambertShader"'
prints '"shader": true'
prints '"type": "colour"'
for field in class implementation categories facts shader params name type default value display_name description saved hidden tab hint menu buttons; do
  prints "\"$field\": "
done

# Whoever reads a sheet is told what each parameter of each class does.
expect 0 "$OV" describe --json --all
awk -F'"' '$2 == "class" { class = $4 } $2 == "name" { name = $4 }
  $2 == "description" { ++count; if (!/\.",$/) print class "." name }
  END { if (count < 1000) print "only " count + 0 " parameters" }' out >untold
[ ! -s untold ] || fail "no description of" $(cat untold)

# Every default can be given back to --set: a project with all of them spelled out is the same project.
expect 0 "$OV" new scene.ovd --like plain --seed 3
expect 0 "$OV" describe camera
sed -n 's/^  \([a-z_]*\) : [a-z0-9]* = \([^|"]*\) |.*/Camera.\1=\2/p' out >assignments
grep -q 'Camera.film_aperture=36' assignments || fail "the camera's defaults aren't listed"
set --
while read -r line; do set -- "$@" --set "$line"; done <assignments
expect 0 "$OV" check scene.ovd "$@"

# A drawn default has no value that a reference could tell.
expect 0 "$OV" describe power_fractal_shader_v3
prints "seed : int = random"
# What a user gets is another matter than what a project that says nothing gets.
cp out stored
expect 0 "$OV" describe --as-new power_fractal_shader_v3
! cmp -s out stored || fail "--as-new shows the constructor's values"

expect 1 "$OV" describe no_such_class
shows 'no class "no_such_class"'
expect 2 "$OV" describe
