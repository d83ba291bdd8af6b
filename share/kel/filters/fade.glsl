/*
Filter: fade
Description: Towards one colour, for cuts
Parameter: float amount; default 0.5; min 0; max 1
Parameter: vec3 colour; default 0; min 0; max 1
*/
void fade(float amount, vec3 colour) {
    gl_FragColor.rgb = mix(gl_FragColor.rgb, colour, amount);
}
