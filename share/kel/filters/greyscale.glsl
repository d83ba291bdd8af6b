/*
Filter: greyscale
Description: Takes the colour away
Parameter: float amount; default 1; min 0; max 1
*/
void greyscale(float amount) {
    gl_FragColor.rgb = mix(gl_FragColor.rgb, vec3(kel_luma(gl_FragColor.rgb)), amount);
}
