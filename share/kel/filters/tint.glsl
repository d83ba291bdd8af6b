/*
Filter: tint
Description: Multiplies by a color
Parameter: vec3 color; default 1, 0.8, 0.5; min 0; max 1
Parameter: float amount; default 1; min 0; max 1
*/
void tint(vec3 color, float amount) {
    gl_FragColor.rgb *= mix(vec3(1.0), color, amount);
}
