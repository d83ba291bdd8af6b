/*
Filter: tint
Description: Multiplies the colour by another one
Parameter: vec3 colour; default 1, 0.8, 0.5; min 0; max 1
Parameter: float amount; default 1; min 0; max 1
*/
void tint(vec3 colour, float amount) {
    gl_FragColor.rgb *= mix(vec3(1.0), colour, amount);
}
